#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"

TEST(Interrupts, OnlyTheInitialisingThreadIsTheSignalThread) {
  foundation::host::initialize();
  EXPECT_NE(utIsSignalThread(), 0);
  int other = -1;
  std::thread([&] { other = utIsSignalThread(); }).join();
  EXPECT_EQ(other, 0);
}

TEST(Interrupts, APendingInterruptThrowsOnceAndClears) {
  foundation::host::initialize();
  utInterruptState::Clear();
  EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
  std::raise(SIGINT);  // routed to the interrupt state, not the default handler
  EXPECT_TRUE(utInterruptState::IsInterruptPending());
  EXPECT_THROW(utInterruptState::ThrowIfInterruptPending(),
               foundation::core::except::InterruptException);
  EXPECT_FALSE(utInterruptState::IsInterruptPending());
  EXPECT_NO_THROW(utInterruptState::ThrowIfInterruptPending());
}

TEST(Services, ThreadCountDefaultsToTheHardwareAndCanBeSet) {
  const auto initial = foundation::services::getNumComputationalThreads();
  EXPECT_GE(initial, 1);
  foundation::services::setNumComputationalThreads(3);
  EXPECT_EQ(foundation::services::getNumComputationalThreads(), 3);
  foundation::services::setNumComputationalThreads(0);
  EXPECT_EQ(foundation::services::getNumComputationalThreads(), initial);
}
