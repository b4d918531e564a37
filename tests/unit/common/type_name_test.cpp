#include "common/types/type_name.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "serialization/types/enumerations.hpp"
#include "serialization/types/records.hpp"

namespace {

using kov::common::types::utils::getTypeName;
namespace types = kov::drivers::lidar::vesk::types;

// The names are compile-time constants.
static_assert(getTypeName<const types::ScanDatum&>().view() == "const kov::drivers::lidar::vesk::types::ScanDatum&");
static_assert(getTypeName<types::ScanDatum&>().size() == 44);

TEST(TypeName, FullyQualifiedWithConstAndReference) {
  EXPECT_STREQ(getTypeName<types::ScanDatum&>().c_str(), "kov::drivers::lidar::vesk::types::ScanDatum&");
  EXPECT_STREQ(getTypeName<const types::ScanDatum&>().c_str(),
               "const kov::drivers::lidar::vesk::types::ScanDatum&");
  EXPECT_STREQ(getTypeName<types::SensorHealthStatus&>().c_str(),
               "kov::drivers::lidar::vesk::types::SensorHealthStatus&");
  EXPECT_STREQ(getTypeName<types::ScanControlLine>().c_str(), "kov::drivers::lidar::vesk::types::ScanControlLine");
  EXPECT_STREQ(getTypeName<unsigned int>().c_str(), "unsigned int");
  EXPECT_STREQ(getTypeName<const char*>().c_str(), "const char*");
  EXPECT_STREQ(getTypeName<types::ScanDatum&&>().c_str(), "kov::drivers::lidar::vesk::types::ScanDatum&&");

  std::ostringstream out;
  out << '<' << getTypeName<const types::DatapathDestinationInfo&>() << '>';
  EXPECT_EQ(out.str(), "<const kov::drivers::lidar::vesk::types::DatapathDestinationInfo&>");
}

}  // namespace
