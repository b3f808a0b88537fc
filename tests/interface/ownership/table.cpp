#include "table.hpp"

#include "logcapture.hpp"

#include <cstring>
#include <string>

namespace varro2::test {
namespace {

using Kind = Null::Kind;

// As it stands in a regular expression.
std::string quoted(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (std::string_view{"()[]{}*+?.|^$\\"}.find(character) != std::string_view::npos)
      escaped += '\\';
    escaped += character;
  }
  return escaped;
}

void expect_abort(const Function &function, std::size_t null_at, const Null &null) {
  const std::string report = std::string{":"} + (null.function ? null.function : function.name) +
                             ": assertion failed: \\(" + quoted(null.text) + "\\)";
  EXPECT_DEATH(
      {
        Objects of;
        function.call(of, null_at);
      },
      report);
}

// The lines that the handles of a machine without a bus write are not the call's.
std::vector<LogLine> lines_of(const LogCapture &log) {
  std::vector<LogLine> lines;
  for (const LogLine &line : log.lines())
    if ((line.level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) != 0 &&
        line.text != "Failed to setup dbus: Failed to connect to bus (-2)" &&
        line.text != "Failed to connect to the bus for Query object")
      lines.push_back(line);
  return lines;
}

void expect_lines(const Function &function, const Null &null, const LogCapture &log) {
  std::vector<LogLine> expected;
  if (null.kind == Kind::refused)
    expected = {{G_LOG_LEVEL_CRITICAL, "",
                 std::string{null.function ? null.function : function.name} + ": assertion '" +
                     null.text + "' failed"}};
  if (null.kind == Kind::warned)
    expected = {{G_LOG_LEVEL_WARNING, "", null.text}};
  if (null.kind == Kind::critical)
    expected = {{G_LOG_LEVEL_CRITICAL, "", null.text}};
  const std::vector<LogLine> lines = lines_of(log);
  EXPECT_EQ(lines.size(), expected.size());
  for (const LogLine &line : lines)
    EXPECT_TRUE(expected.size() == 1 && line == expected[0]) << line.domain << " " << line.text;
}

void expect_error(const Null &null, const Objects &of) {
  if (null.kind != Kind::fails) {
    EXPECT_EQ(of.error_slot, nullptr) << of.error_slot->message;
    return;
  }
  ASSERT_NE(of.error_slot, nullptr);
  EXPECT_STREQ(g_quark_to_string(of.error_slot->domain), "event-error-quark");
  EXPECT_EQ(of.error_slot->code, null.code);
  EXPECT_STREQ(of.error_slot->message, null.text);
}

void expect_living(const Function &function, const Result &result, std::size_t null_at,
                   const Null &null) {
  Objects of;
  const LogCapture log;
  const Outcome outcome = function.call(of, null_at);
  if (null.kind == Kind::accepted || null.has_result) {
    of.hand_over();
    if (outcome.pointer && result.release)
      result.release(outcome.pointer);
  } else {
    EXPECT_EQ(outcome.number, result.neutral);
  }
  expect_error(null, of);
  of.settle();
  expect_lines(function, null, log);
}

void expect_case(const Function &function, const Result &result, std::size_t null_at,
                 const Null &null) {
  if (null.kind == Kind::aborts)
    expect_abort(function, null_at, null);
  else if (null.kind != Kind::unchecked)
    expect_living(function, result, null_at, null);
}

void expect_proper(const Function &function, const Result &result) {
  Objects of;
  const LogCapture log;
  const Outcome outcome = function.call(of, none_is_null);
  of.hand_over();
  EXPECT_TRUE(result.may_be_null || outcome.number != 0);
  if (outcome.pointer && result.release)
    result.release(outcome.pointer);
  expect_error(accepted, of);
  of.settle();
  expect_lines(function, accepted, log);
}

} // namespace

void read(const char *text) {
  [[maybe_unused]] static volatile std::size_t seen;
  if (text)
    seen = std::strlen(text);
}

void check_row(const Function &function, const Result &result, const std::vector<Null> &nulls,
               const Null &whole) {
  ASSERT_EQ(nulls.size(), function.pointers) << "the row does not speak of every pointer";
  if (whole.kind == Kind::accepted)
    expect_proper(function, result);
  else
    expect_case(function, result, none_is_null, whole);
  for (std::size_t at = 0; at < nulls.size(); ++at) {
    SCOPED_TRACE("pointer " + std::to_string(at + 1) + " is NULL");
    expect_case(function, result, at, nulls[at]);
  }
}

void check_refusal(const Function &function, const Result &result, const Null &refusal) {
  expect_case(function, result, none_is_null, refusal);
}

} // namespace varro2::test
