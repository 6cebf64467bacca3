// The benchmark's /proc figures and medians: a wrong one would pass for the service's.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "BenchProc.h"
#include "BenchTarget.h"

TEST(BenchProc, FiguresOfARunningProcess) {
  const pid_t i_Self = getpid();
  const long long ll_Cpu0 = f_ProcCpuNs(i_Self);
  ASSERT_GE(ll_Cpu0, 0);
  volatile unsigned long ul_Sum = 0;
  for (auto o_End = std::chrono::steady_clock::now() + std::chrono::milliseconds(30);
       std::chrono::steady_clock::now() < o_End;)
    ul_Sum = ul_Sum + 1;
  EXPECT_GT(f_ProcCpuNs(i_Self), ll_Cpu0);

  const int i_Fds = f_ProcOpenFds(i_Self);
  const int i_Fd = open("/dev/null", O_RDONLY);
  EXPECT_EQ(f_ProcOpenFds(i_Self), i_Fds + 1);
  close(i_Fd);

  // Memory written by this process alone counts as private dirty.
  const long l_Dirty0 = f_ProcPrivateDirtyKb(i_Self);
  ASSERT_GT(l_Dirty0, 0);
  std::vector<char> a_c_Block(4 << 20);
  std::memset(a_c_Block.data(), 1, a_c_Block.size());
  EXPECT_GE(f_ProcPrivateDirtyKb(i_Self) - l_Dirty0, 3 * 1024);
}

// Ended threads' CPU stays in the idle figure's counter; a sum over living threads drops it.
TEST(BenchProc, LifetimeCpuKeepsEndedThreads) {
  const long long ll_Life0 = f_ProcLifeCpuNs(getpid());
  ASSERT_GE(ll_Life0, 0);
  // The worker runs until it has had 100 ms of CPU, however loaded the machine is.
  std::thread([] {
    timespec o_Cpu{};
    do clock_gettime(CLOCK_THREAD_CPUTIME_ID, &o_Cpu);
    while (o_Cpu.tv_sec == 0 && o_Cpu.tv_nsec < 100 * 1000 * 1000);
  }).join();
  // Ticks of 10 ms: well over half of the worker's 100 ms must be there.
  EXPECT_GE(f_ProcLifeCpuNs(getpid()) - ll_Life0, 50LL * 1000 * 1000);
}

TEST(BenchProc, MedianOfTheRepetitions) {
  auto f_Runs = [](std::initializer_list<double> a_d_Values) {
    std::vector<Sample_ST> a_o_Runs;
    for (double d_Us : a_d_Values) a_o_Runs.push_back({1000 - d_Us, d_Us});  // calls/s, p50
    return f_Median(a_o_Runs);
  };
  EXPECT_DOUBLE_EQ(f_Runs({300, 100, 200}).d_P50Us, 200);
  EXPECT_DOUBLE_EQ(f_Runs({300, 100, 200}).d_CallsPerS, 800);  // each figure on its own
  EXPECT_DOUBLE_EQ(f_Runs({400, 100, 300, 200}).d_P50Us, 250);
}
