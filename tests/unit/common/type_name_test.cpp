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
static_assert(getTypeName<const types::ScanDatum&>().view() ==
              "const kov::drivers::lidar::vesk::types::ScanDatum&");

TEST(TypeName, FullyQualifiedWithConstAndReference) {
  std::ostringstream out;
  out << getTypeName<types::ScanDatum&>().c_str() << '|' << getTypeName<types::SensorHealthStatus&>() << '|'
      << getTypeName<types::ScanControlLine>() << '|' << getTypeName<unsigned int>() << '|'
      << getTypeName<const char*>() << '|' << getTypeName<types::ScanDatum&&>() << '|'
      << getTypeName<const types::DatapathDestinationInfo&>();
  const std::string ns = "kov::drivers::lidar::vesk::types::";
  EXPECT_EQ(out.str(), ns + "ScanDatum&|" + ns + "SensorHealthStatus&|" + ns +
                           "ScanControlLine|unsigned int|const char*|" + ns + "ScanDatum&&|const " + ns +
                           "DatapathDestinationInfo&");
}

}  // namespace
