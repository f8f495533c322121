#include "record/task_manager.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "record/task.h"
#include "tests/support/device_test.h"

namespace {

class CountedTask : public CTaskbase {
 public:
  explicit CountedTask(int type = 1, int stream = 0, const std::string& base = "") : CTaskbase(type) {
    SetStreamSelector(stream);
    SetStorageBase(base.c_str());
  }
  int Start() override { return 0; }
  int Stop() override {
    ++stops;
    return 0;
  }
  using CTaskbase::SetLocalFileName;

  std::atomic<int> stops{0};
};

class TaskManagerTest : public fake::DeviceTest {
 protected:
  TaskManagerTest() { EXPECT_EQ(TaskManagerInit(), 1); }
  ~TaskManagerTest() override {
    TaskManagerInit();
    TaskSetWriteFail(0);
  }
};

TEST_F(TaskManagerTest, HasTenSlotsAndFillsTheLowestFirst) {
  CountedTask tasks[11];
  for (int i = 0; i < 10; ++i) EXPECT_EQ(TaskManagerAddTask(&tasks[i]), i);
  EXPECT_TRUE(m_platform.Logged("]found one position: 9 for pTask "));
  EXPECT_EQ(TaskManagerAddTask(&tasks[10]), -1);
  EXPECT_EQ(m_platform.CountLogged("]too many task!\n\n"), 1);
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[10]), -1);
  EXPECT_EQ(m_platform.CountLogged(" not found!\n\n"), 1);
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[7]), 7);
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[3]), 3);
  EXPECT_TRUE(m_platform.Logged("]remove one position: 3 for pTask "));
  EXPECT_EQ(TaskManagerAddTask(&tasks[10]), 3);
  EXPECT_EQ(TaskManagerAddTask(&tasks[10]), 7);  // twice there, and taken out one at a time
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[10]), 3);
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[10]), 7);
  EXPECT_EQ(TaskManagerRemoveTask(&tasks[10]), -1);
}

TEST_F(TaskManagerTest, CountsAndFindsByTypeAndStream) {
  CountedTask schedule(1, 0), subSchedule(1, 1), secondSet(10, 1), motion(3, 1);
  for (CountedTask* task : {&schedule, &subSchedule, &secondSet, &motion}) TaskManagerAddTask(task);
  EXPECT_EQ(TaskManagerGetTaskCount(1, -1), 2);
  EXPECT_EQ(TaskManagerGetTaskCount(10, -1), 1);
  EXPECT_EQ(TaskManagerGetTaskCount(1, 1), 1);
  EXPECT_EQ(TaskManagerGetTaskCount(1, 2), 0);
  EXPECT_EQ(TaskManagerGetFirst(1, -1), &schedule);
  EXPECT_EQ(TaskManagerGetFirst(1, 1), &subSchedule);
  EXPECT_EQ(TaskManagerGetFirst(4, -1), nullptr);
  TaskManagerRemoveTask(&schedule);
  EXPECT_EQ(TaskManagerGetFirst(1, -1), &subSchedule);
}

TEST_F(TaskManagerTest, ReleaseStopsAndForgetsAll) {
  CountedTask tasks[2];
  TaskManagerAddTask(&tasks[0]);
  TaskManagerAddTask(&tasks[1]);
  m_platform.ClearRecord();
  EXPECT_EQ(TaskManagerRelease(), 1);
  EXPECT_EQ(tasks[0].stops + tasks[1].stops, 2);
  EXPECT_EQ(TaskManagerGetTaskCount(1, -1), 0);
  const std::vector<fake::LogLine> log = m_platform.Log();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[0].module, 1);
  EXPECT_THAT(log[0].text, ::testing::EndsWith("]call TaskManagerRelease.\n\n"));
  EXPECT_THAT(log[2].text, ::testing::HasSubstr("]Stop task 1: pTask="));
}

// A task of the application may leave the registry from within its Stop(), and be gone after it.
TEST_F(TaskManagerTest, ATaskMayTakeItselfOutWhileItIsStopped) {
  class LeavingTask : public CountedTask {
   public:
    using CountedTask::CountedTask;
    int Stop() override {
      TaskManagerRemoveTask(this);
      TaskManagerAddTask(&successor);
      return CountedTask::Stop();
    }
    CountedTask successor{1, 0, "/mnt/mmc1"};
  };
  LeavingTask task(1, 0, "/mnt/mmc0/schedule");
  TaskManagerAddTask(&task);
  EXPECT_EQ(TaskManagerStopTaskOnStorage("/mnt/mmc0"), -1) << "its successor runs on";
  EXPECT_EQ(TaskManagerGetFirst(1, -1), &task.successor);

  TaskManagerInit();
  TaskManagerAddTask(&task);
  TaskManagerRelease();
  EXPECT_EQ(TaskManagerGetFirst(1, -1), &task.successor) << "the slot is another task's by then";
  EXPECT_EQ(task.stops, 2);
}

TEST_F(TaskManagerTest, TellsWhatIsInUse) {
  CountedTask task(1, 0, "/mnt/mmc0/schedule/20240131");
  task.SetLocalFileName("081500-av-1.kmv");
  task.SetNetworkBase("/tmp/network/SN0001/schedule/20240131");
  TaskManagerAddTask(&task);
  struct Case {
    const char* argument;
    int directory, file, part;
  };
  const Case cases[] = {
      {nullptr, -1, -1, -1},
      {"", -1, -1, -1},
      {"/mnt/mmc0/schedule/20240131", 1, 0, 1},
      {"/mnt/mmc0/schedule/20240131/", 0, 0, 1},
      {"/mnt/mmc0/schedule", 0, 0, 1},
      {"/mnt/mmc0/schedule/20240131/081500-av-1.kmv", 0, 1, 1},
      {"20240131/081500-av", 0, 0, 1},
      {"/mnt/mmc0/schedule/20240131/081500-av-1.kmv.info", 0, 0, 0},
      {"/mnt/mmc1/schedule/20240131", 0, 0, 0},
      {"/tmp/network/SN0001/schedule/20240131", 0, 0, 0},  // the share is not protected
  };
  for (const Case& each : cases) {
    const std::string what = each.argument != nullptr ? each.argument : "(null)";
    EXPECT_EQ(TaskManagerDirUsing(each.argument), each.directory) << what;
    EXPECT_EQ(TaskManagerFileUsing(each.argument), each.file) << what;
    EXPECT_EQ(TaskManagerFullDirUsing(each.argument), each.part) << what;
  }
  TaskManagerRemoveTask(&task);
  EXPECT_EQ(TaskManagerDirUsing("/mnt/mmc0/schedule/20240131"), 0);
}

TEST_F(TaskManagerTest, OneFurtherFileCanBeMarkedByItsFirst255Characters) {
  EXPECT_EQ(TaskManagerIsFileUsing("/a.kmv"), 0);
  EXPECT_EQ(TaskManagerSetFileUsing("/a.kmv"), 0);
  EXPECT_EQ(TaskManagerIsFileUsing("/a.kmv"), 1);
  EXPECT_EQ(TaskManagerIsFileUsing("/a.kmv.info"), 0);
  EXPECT_EQ(TaskManagerIsFileUsing("/a.km"), 0);
  EXPECT_EQ(TaskManagerIsFileUsing(nullptr), 0);
  const std::string prefix(255, 'p');
  TaskManagerSetFileUsing((prefix + "one").c_str());
  EXPECT_EQ(TaskManagerIsFileUsing((prefix + "another").c_str()), 1);
  EXPECT_EQ(TaskManagerIsFileUsing(prefix.substr(1).c_str()), 0);
  EXPECT_EQ(TaskManagerIsFileUsing("/a.kmv"), 0);
  TaskManagerInit();
  EXPECT_EQ(TaskManagerIsFileUsing(prefix.c_str()), 0);
}

TEST_F(TaskManagerTest, StoppingAMediumWaitsForEveryTask) {
  CountedTask first(1, 0, "/mnt/mmc0/schedule/20240131"), second(1, 1, "/mnt/mmc1/schedule/20240131");
  TaskManagerAddTask(&first);
  TaskManagerAddTask(&second);
  EXPECT_EQ(TaskManagerStopTaskOnStorage(nullptr), -1);
  EXPECT_EQ(TaskManagerStopTaskOnStorage(""), -1);
  EXPECT_EQ(first.stops, 0);

  const long long begin = m_clock.RunUs();
  EXPECT_EQ(TaskManagerStopTaskOnStorage("/mnt/mmc0"), -1);
  EXPECT_EQ(m_clock.RunUs() - begin, 3600000);
  EXPECT_EQ(first.stops, 1);
  EXPECT_EQ(second.stops, 0);
  EXPECT_EQ(m_platform.CountLogged("]Wait all record task finshed..\n\n"), 9);

  int sleeps = 0;
  m_clock.OnSleep([&] {
    ++sleeps;
    if (sleeps == 1) TaskManagerRemoveTask(&first);
    if (sleeps == 3) TaskManagerRemoveTask(&second);
  });
  EXPECT_EQ(TaskManagerStopTaskOnStorage("/mnt/mmc1/"), 0);
  EXPECT_EQ(sleeps, 3);
  EXPECT_EQ(second.stops, 1);
  EXPECT_EQ(TaskManagerStopTaskOnStorage("/mnt"), 0);
  EXPECT_EQ(sleeps, 3);
  m_clock.OnSleep(nullptr);
}

TEST_F(TaskManagerTest, NamesTheTaskThatHoldsItsMutexTooLong) {
  CountedTask idle, busy;
  TaskManagerAddTask(&idle);
  TaskManagerAddTask(&busy);
  unsigned line = 7;
  unsigned time = 8;
  busy.GetMutex().Lock(4711);
  m_clock.Sleep(1001);
  EXPECT_EQ(TaskIsBlockingTime(1001, &line, &time), 0);
  EXPECT_EQ(line, 7u);
  EXPECT_EQ(TaskIsBlockingTime(1000, &line, &time), 1);
  EXPECT_EQ(line, 4711u);
  EXPECT_EQ(time, 1001u);
  EXPECT_EQ(TaskIsBlockingTime(999, &line, &time), 0);  // too short to be asked for: 10 s
  m_clock.Sleep(9000);
  EXPECT_EQ(TaskIsBlockingTime(500, &line, &time), 1);
  EXPECT_EQ(time, 10001u);
  busy.GetMutex().Unlock();
  EXPECT_EQ(TaskIsBlockingTime(1000, &line, &time), 0);
}

// Tasks come and go while others ask: for the thread and the address checker, and for the removal that must
// not return while a query still looks at the task.
TEST_F(TaskManagerTest, TasksMayBeDeletedUnderRunningQueries) {
  m_platform.keepLog = false;
  std::atomic<bool> stop{false};
  std::atomic<int> lives{0};
  std::atomic<int> questions{0};
  const std::string base = "/mnt/mmc0/schedule/20240131";

  std::vector<std::thread> threads;
  for (int n = 0; n < 3; ++n)
    threads.emplace_back([&, n] {
      for (int round = 0; !stop; ++round) {
        auto task = std::make_unique<CountedTask>(1, n, base);
        if (TaskManagerAddTask(task.get()) < 0) continue;
        task->SetLocalFileName(round % 2 == 0 ? "081500-av-1.kmv" : "another-name-082000-av-1.kmv");
        TaskManagerRemoveTask(task.get());
        ++lives;
      }
    });
  for (int n = 0; n < 2; ++n)
    threads.emplace_back([&] {
      const std::string file = base + "/081500-av-1.kmv";
      while (!stop) {
        EXPECT_GE(TaskManagerFileUsing(file.c_str()), 0);
        EXPECT_GE(TaskManagerDirUsing(base.c_str()), 0);
        EXPECT_GE(TaskManagerFullDirUsing("081500"), 0);
        unsigned line = 0;
        unsigned time = 0;
        EXPECT_EQ(TaskIsBlockingTime(1000, &line, &time), 0);
        EXPECT_LE(TaskManagerGetTaskCount(1, -1), 3);
        ++questions;
      }
    });
  threads.emplace_back([&] {
    while (!stop) {
      TaskManagerRelease();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  threads.emplace_back([&] {
    for (int round = 0; !stop; ++round) {
      const std::string name(static_cast<size_t>(round % 256), static_cast<char>('a' + round % 26));
      TaskManagerSetFileUsing(name.c_str());
      EXPECT_EQ(TaskManagerIsFileUsing(name.c_str()), 1);
    }
  });
  std::this_thread::sleep_for(std::chrono::seconds(1));
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(lives, 100);
  EXPECT_GT(questions, 100);
}

}  // namespace
