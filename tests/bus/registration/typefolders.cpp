// Linked into a program, lets it look for declaration types in the folder that VARRO2_TEST_TYPES
// names, and nowhere else. Only a program that has the library's objects in it can do that.
#include "eventdeclaration.hpp"

#include <cstdlib>

namespace {

[[maybe_unused]] const bool set = [] {
  const char *folder = std::getenv("VARRO2_TEST_TYPES");
  varro2::declaration_folders = {folder ? folder : "/nonexistent/varro2", "/nonexistent/varro2"};
  return true;
}();

} // namespace
