#include "common/types/type_name.hpp"

#include <gtest/gtest.h>

#include <string>

#include "serialization/types/records.hpp"

namespace {

using kov::common::types::utils::getTypeName;
namespace types = kov::drivers::lidar::vesk::types;

// The names are compile-time constants. Names of the library's records with const and & are also
// checked letter for letter in the client's log lines (client_test.cpp); here the other forms.
static_assert(getTypeName<const types::ScanDatum&>().view() ==
              "const kov::drivers::lidar::vesk::types::ScanDatum&");

TEST(TypeName, BuiltinsPointersAndRvalueReferencesWithoutBlanks) {
  EXPECT_EQ(std::string(getTypeName<unsigned int>().c_str()) + "|" + getTypeName<const char*>().c_str() +
                "|" + getTypeName<types::ScanDatum&&>().c_str() + "|" +
                getTypeName<types::ScanControlLine>().c_str(),
            "unsigned int|const char*|kov::drivers::lidar::vesk::types::ScanDatum&&|"
            "kov::drivers::lidar::vesk::types::ScanControlLine");
}

}  // namespace
