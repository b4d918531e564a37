#include "common/types/type_name.hpp"

#include "serialization/types/records.hpp"

namespace {

namespace types = kov::drivers::lidar::vesk::types;

// The names are compile-time constants. The library names its records with const and & in log lines,
// which the client's tests (client_test.cpp) check letter for letter at run time.
static_assert(kov::common::types::utils::getTypeName<const types::ScanDatum&>().view() ==
              "const kov::drivers::lidar::vesk::types::ScanDatum&");

}  // namespace
