// rtsp_server PORT CLIP: serves a Matroska clip (H.264 with G.711 u-law) as rtsp://127.0.0.1:PORT/camera, at
// its own pace from its beginning for every client. Port 0 takes a free one. Prints the port and serves until
// it is killed; dies with its parent.
#include <gst/rtsp-server/rtsp-server.h>
#include <signal.h>
#include <sys/prctl.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  gst_init(&argc, &argv);
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  GstRTSPServer* server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, "127.0.0.1");
  gst_rtsp_server_set_service(server, argv[1]);

  const std::string launch =
      std::string("( filesrc location=") + argv[2] +
      " ! matroskademux name=d d.video_0 ! queue ! identity sync=true ! h264parse ! rtph264pay name=pay0 pt=96 "
      "d.audio_0 ! queue ! identity sync=true ! rtppcmupay name=pay1 pt=0 )";
  GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, launch.c_str());
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  gst_rtsp_mount_points_add_factory(mounts, "/camera", factory);
  g_object_unref(mounts);

  if (gst_rtsp_server_attach(server, nullptr) == 0) return 1;
  printf("%d\n", gst_rtsp_server_get_bound_port(server));
  fflush(stdout);
  g_main_loop_run(loop);
  return 0;
}
