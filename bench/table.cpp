#include "bench/table.h"

#include <cstdio>

namespace bench {
namespace {

int g_missed = 0;

std::string Verdict(double measured, double limit) {
  if (limit <= 0) return "";
  if (measured <= limit) return "met";
  ++g_missed;
  char text[48];
  std::snprintf(text, sizeof text, "missed by %.0f %%", (measured / limit - 1) * 100);
  return text;
}

std::string GoalText(const Goal& goal) {
  if (goal.limit <= 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%s <= %.2f", goal.measure == Measure::kCpu ? "CPU" : "wall", goal.limit);
  return text;
}

}  // namespace

void PrintHeadline(const std::string& text) {
  std::printf("\n%s\n%-24s %-40s %8s %8s %9s %9s  %-14s %s\n", text.c_str(), "what", "against", "CPU x", "wall x",
              "us CPU", "their CPU", "goal", "");
}

void PrintRatio(const std::string& what, const Contender& mine, const Contender& theirs, double per, Goal goal) {
  const Cost ratio = MedianRatio(mine, theirs);
  const double judged = goal.measure == Measure::kCpu ? ratio.cpu : ratio.wall;
  std::printf("%-24s %-40s %8.3f %8.3f %9.2f %9.2f  %-14s %s\n", what.c_str(), theirs.name.c_str(), ratio.cpu,
              ratio.wall, MedianCost(mine).cpu / per * 1e6, MedianCost(theirs).cpu / per * 1e6,
              GoalText(goal).c_str(), Verdict(judged, goal.limit).c_str());
  std::fflush(stdout);
}

void PrintFigure(const std::string& what, double value, const std::string& unit, double limit) {
  char goal[32] = "-";
  if (limit > 0) std::snprintf(goal, sizeof goal, "<= %.2f", limit);
  std::printf("%-65s %8.3f %-27s  %-14s %s\n", what.c_str(), value, unit.c_str(), goal,
              Verdict(value, limit).c_str());
  std::fflush(stdout);
}

void PrintNote(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

int MissedGoals() {
  return g_missed;
}

}  // namespace bench
