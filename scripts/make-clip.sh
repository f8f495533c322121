#!/usr/bin/env bash
# Makes assets/camera.mkv, the clip that stands in for a camera: 12 s of 640x360 at 25 frames/s, H.264 High
# with a key frame every second and no B-frames, G.711 mu-law at 8 kHz. All of it is synthetic, one encoder
# thread and bit-exact flags make it the same bytes every time with the same ffmpeg.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p assets

video="testsrc2=size=640x360:rate=25:duration=12"
# A box that crosses the picture and one that bounces: motion in every frame, as a street has.
video+=",drawbox=x=0:y=300:w=640:h=60:color=gray@0.8:t=fill"
car="color=c=red:size=80x40:rate=25:duration=12"
ball="color=c=white:size=24x24:rate=25:duration=12"
audio="aevalsrc='0.3*sin(440*2*PI*t)*(0.6+0.4*sin(2*PI*t))':s=8000:d=12,asetnsamples=n=320"

ffmpeg -nostdin -v error -y -f lavfi -i "$video" -f lavfi -i "$car" -f lavfi -i "$ball" -f lavfi -i "$audio" \
  -filter_complex "[0][1]overlay=x='mod(t*160,720)-80':y=310[street];[street][2]overlay=x='308+250*sin(t*1.7)':y='150+100*cos(t*2.3)',format=yuv420p[v]" \
  -map '[v]' -map 3:a -c:v libx264 -profile:v high -preset slow -threads 1 -b:v 600k -maxrate 700k -bufsize 600k \
  -g 25 -keyint_min 25 -sc_threshold 0 -bf 0 -c:a pcm_mulaw -ar 8000 -ac 1 \
  -fflags +bitexact -flags:v +bitexact -flags:a +bitexact -map_metadata -1 assets/camera.mkv

ls -l assets/camera.mkv
