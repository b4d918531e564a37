#include "common/log/system_logger.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "common/log/stream_logger.hpp"

namespace {

using kov::common::log::StdErrLogger;
using kov::common::log::SystemLoggerSingleton;

TEST(SystemLogger, DefaultsToStdErrLoggerAndReportsDeadReferenceOnce) {
  auto& first = SystemLoggerSingleton::instance();
  EXPECT_EQ(&first, &SystemLoggerSingleton::instance());
  ASSERT_NE(first.logger, nullptr);
  EXPECT_NE(dynamic_cast<StdErrLogger*>(first.logger.get()), nullptr);
  EXPECT_FALSE(first.logger->isUsingDefaultLogFormat());

  // A logger held elsewhere outlives the singleton.
  std::weak_ptr<kov::common::log::ILogger> held = first.logger;
  auto keep = held.lock();
  SystemLoggerSingleton::destroy();
  EXPECT_FALSE(held.expired());
  keep.reset();
  EXPECT_TRUE(held.expired());

  try {
    SystemLoggerSingleton::instance();
    FAIL() << "no dead reference reported";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "Dead Reference Detected");
  }
  auto& second = SystemLoggerSingleton::instance();
  ASSERT_NE(second.logger, nullptr);
  EXPECT_NE(dynamic_cast<StdErrLogger*>(second.logger.get()), nullptr);
}

}  // namespace
