// The completion of bash, called as the shell calls it, and held against the tool's own help.
// scripts/completions tries zsh and fish as well, which need not be installed here.
#include "tool.hpp"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace varro2::test {
namespace {

using Words = std::set<std::string>;

Words lines_of(const std::string &text) {
  Words words;
  std::istringstream lines{text};
  for (std::string line; std::getline(lines, line);)
    words.insert(line);
  return words;
}

// What is offered at the end of the line. The words of the live system are made up.
Words offered(const std::string &line, const std::string &breaks = " ") {
  ChildProcess bash{{"bash", "--norc", "-c", R"(
source "$1"
varro2() {
  case "$1 $2" in
  "complete tests") printf '%s\n' topic0=Device port=1 ;;
  "complete keys") printf '%s\n' topic0= port= ;;
  "complete topics") printf '%s\n' tns1:Device tns1:Device/IO ;;
  "complete types") printf '%s\n' door '$(exit)' ;;
  "complete open-keys") printf '%s\n' "of-$3=" ;;
  esac
}
COMP_WORDBREAKS=$3 COMP_LINE=$2 COMP_POINT=${#2} COMPREPLY=()
_varro2
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}")",
                     "bash", BASH_COMPLETION, line, breaks}};
  bash.close_input();
  EXPECT_EQ(bash.wait(), 0) << bash.errors();
  return lines_of(bash.output());
}

TEST(BashCompletion, OffersWhatCanFollow) {
  EXPECT_EQ(offered("varro2 mo"), Words{"monitor"});
  EXPECT_EQ(offered("varro2 --color always mo"), Words{"monitor"});
  EXPECT_EQ(offered("varro2 monitor to"), (Words{"topic0=", "topic0=Device"}));
  EXPECT_EQ(offered("varro2 monitor 'a=1 & (po"), (Words{"a=1 & (port=", "a=1 & (port=1"}));
  EXPECT_EQ(offered("varro2 monitor --format=o"), Words{"--format=onvif"});
  EXPECT_EQ(offered("varro2 send "), (Words{"door", "$(exit)"})) << "nothing is expanded";
  EXPECT_EQ(offered("varro2 send --timeout 5 door "), Words{"of-door="})
      << "an option and its value are no arguments";
  EXPECT_EQ(offered("varro2 describe tns1:Device/"), Words{"tns1:Device/IO"});
  EXPECT_EQ(offered("varro2 monitor --count "), Words{});
}

// bash ends words at ':' and '=', and replaces only what follows.
TEST(BashCompletion, KnowsWhereBashEndsWords) {
  EXPECT_EQ(offered("varro2 describe tns1:", " :="), (Words{"Device", "Device/IO"}));
  EXPECT_EQ(offered("varro2 monitor topic0=", " :="), Words{"Device"});
  EXPECT_EQ(offered("varro2 monitor 'topic0=", " :="), (Words{"topic0=", "topic0=Device"}))
      << "not in quotes";
}

// The commands, or the options of one, that the help names.
Words named(const std::string &help, const std::string &head, std::size_t least) {
  Words words;
  std::istringstream lines{help.substr(help.find(head))};
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && !line.empty()) {
    std::string names = line.substr(2, line.find(' ', 2) - 2);
    for (std::size_t comma = 0; comma != std::string::npos;) {
      comma = names.find(',');
      if (const std::string name = names.substr(0, comma); name.size() > 2)
        words.insert(name);
      names.erase(0, comma == std::string::npos ? comma : comma + 1);
    }
  }
  EXPECT_GE(words.size(), least);
  return words;
}

TEST(BashCompletion, OffersEveryCommandAndOptionOfTheHelp) {
  const Words commands = named(varro2({"--help"}).output, "Subcommands:", 15);
  EXPECT_EQ(offered("varro2 "), commands);
  for (const std::string &command : commands) {
    Words options = named(varro2({command, "--help"}).output, "Options:", 1);
    options.insert({"--color", "--verbose"});
    EXPECT_EQ(offered("varro2 " + command + " --"), options) << command;
  }
}

} // namespace
} // namespace varro2::test
