// Numbers as some people write them.
#pragma once

#include <glib.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace varro2::test {

// A locale with a decimal comma, made for the test: no system is sure to have one.
class CommaLocale {
 public:
  CommaLocale() {
    std::string name = (std::filesystem::temp_directory_path() / "varro2-locale-XXXXXX").string();
    folder_ = g_mkdtemp(name.data());
    std::ofstream{folder_ / "source"} << "LC_NUMERIC\n"
                                         "decimal_point \",\"\n"
                                         "thousands_sep \".\"\n"
                                         "grouping 3;3\n"
                                         "END LC_NUMERIC\n";
    const std::string command = "localedef -c -i '" + (folder_ / "source").string() + "' '" +
                                (folder_ / "comma").string() + "' >/dev/null 2>&1";
    // It complains about the categories that are not there.
    static_cast<void>(!std::system(command.c_str()));
    g_setenv("LOCPATH", folder_.c_str(), TRUE);
    is_set_ = std::setlocale(LC_NUMERIC, "comma");
  }
  ~CommaLocale() {
    std::setlocale(LC_NUMERIC, "C");
    g_unsetenv("LOCPATH");
    std::filesystem::remove_all(folder_);
  }
  CommaLocale(const CommaLocale &) = delete;
  CommaLocale &operator=(const CommaLocale &) = delete;

  bool is_set() const { return is_set_; }

 private:
  std::filesystem::path folder_;
  bool is_set_ = false;
};

} // namespace varro2::test
