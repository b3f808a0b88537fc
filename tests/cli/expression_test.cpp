// Expressions as people write them: what they come to, and what is said about a mistake.
#include "evaluate.hpp"
#include "expression.hpp"
#include "failure.hpp"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace varro2::cli {
namespace {

// The lists in a form that shows every field.
std::string form(const std::string &text) {
  std::string result;
  for (const AndList &list : parse_expression(text).lists) {
    result += '[';
    for (const Test &test : list)
      result += '(' + test.name_space + '|' + (test.any_key ? "ANY" : test.key) + '|' +
                (test.any_value ? "ANY" : test.value) + '|' + (test.negated ? "not" : "") + ')';
    result += ']';
  }
  return result;
}

struct Mistake {
  std::size_t position;
  std::size_t length;
  std::string what;
};

Mistake mistake(const std::string &text) {
  try {
    parse_expression(text);
  } catch (const SyntaxError &error) {
    return {error.position(), error.length(), error.what()};
  }
  ADD_FAILURE() << "no mistake was found in " << text;
  return {};
}

TEST(Expression, TestsOfEveryKind) {
  EXPECT_EQ(form("port"), "[(|port|ANY|)]");
  EXPECT_EQ(form("!port"), "[(|port|ANY|not)]");
  EXPECT_EQ(form("port=1"), "[(|port|1|)]");
  EXPECT_EQ(form("port!=1"), "[(|port|1|not)]");
  EXPECT_EQ(form("!port=1"), "[(|port|1|not)]");
  EXPECT_EQ(form("!port!=1"), "[(|port|1|)]");
  EXPECT_EQ(form("*=1"), "[(|ANY|1|)]");
  EXPECT_EQ(form("*!=1"), "[(|ANY|1|not)]");
  EXPECT_EQ(form("!*=1"), "[(|ANY|1|not)]");
  EXPECT_EQ(form("tns1:topic0=Device"), "[(tns1|topic0|Device|)]");
  EXPECT_EQ(form("port=*"), "[(|port|ANY|)]");
  EXPECT_EQ(form("port!=*"), "[(|port|ANY|not)]");
  EXPECT_EQ(form(" port = 1 "), "[(|port|1|)]");
  EXPECT_EQ(form("port==1"), "[(|port|1|)]");
  EXPECT_EQ(form("time=12:30:01"), "[(|time|12:30:01|)]");
  EXPECT_EQ(form("level=-7.5"), "[(|level|-7.5|)]");
}

TEST(Expression, NothingIsEverything) {
  EXPECT_TRUE(parse_expression("").is_everything());
  EXPECT_TRUE(parse_expression(" \t\n").is_everything());
  EXPECT_FALSE(parse_expression("a").is_everything());
}

TEST(Expression, QuotesTakeAnythingOdd) {
  EXPECT_EQ(form("\"a b\"=\"c & d\""), "[(|a b|c & d|)]");
  EXPECT_EQ(form("'a \"b'='c\\d'"), "[(|a \"b|c\\d|)]");
  EXPECT_EQ(form(R"("a\"b"="c\\d")"), R"([(|a"b|c\d|)])");
  EXPECT_EQ(form("\"n:s\":\"k:y\"=\"*\""), "[(n:s|k:y|*|)]");
  EXPECT_EQ(form("a=\"\""), "[(|a||)]");
  EXPECT_EQ(form("\"and\"=1 & \"not\""), "[(|and|1|)(|not|ANY|)]");
}

TEST(Expression, AndBindsMoreTightlyThanOr) {
  EXPECT_EQ(form("a=1 | b=2 & c=3"), "[(|a|1|)][(|b|2|)(|c|3|)]");
  EXPECT_EQ(form("(a=1 | b=2) & c=3"), "[(|a|1|)(|c|3|)][(|b|2|)(|c|3|)]");
  EXPECT_EQ(form("a=1&b=2|c=3"), "[(|a|1|)(|b|2|)][(|c|3|)]");
}

TEST(Expression, NegationReachesTheTests) {
  EXPECT_EQ(form("!(a=1 & b)"), "[(|a|1|not)][(|b|ANY|not)]");
  EXPECT_EQ(form("!(a=1 | b)"), "[(|a|1|not)(|b|ANY|not)]");
  EXPECT_EQ(form("!!a"), "[(|a|ANY|)]");
  EXPECT_EQ(form("!(!a | !(b=2))"), "[(|a|ANY|)(|b|2|)]");
}

TEST(Expression, WordsForOperators) {
  EXPECT_EQ(form("a=1 and not b or c=3"), "[(|a|1|)(|b|ANY|not)][(|c|3|)]");
  EXPECT_EQ(form("a=1 AND (b OR NOT(c))"), "[(|a|1|)(|b|ANY|)][(|a|1|)(|c|ANY|not)]");
  EXPECT_EQ(form("a=1 && b=2 || c"), "[(|a|1|)(|b|2|)][(|c|ANY|)]");
  EXPECT_EQ(form("not=1"), "[(|not|1|)]");
  EXPECT_EQ(form("order=1 or android"), "[(|order|1|)][(|android|ANY|)]");
  EXPECT_EQ(form("notice"), "[(|notice|ANY|)]");
}

TEST(Expression, TheSameTestOrListTwiceIsOne) {
  EXPECT_EQ(form("a & a"), "[(|a|ANY|)]");
  EXPECT_EQ(form("a=1 | a=1"), "[(|a|1|)]");
}

TEST(Expression, MistakesTellPlaceAndWhatWasExpected) {
  const struct {
    const char *text;
    std::size_t position;
    std::size_t length;
    const char *what;
  } cases[] = {
      {"a=1 &", 5, 1, "expected a key, '*', '!' or '(', but the expression ends here"},
      {"a=1 & & b", 6, 1, "expected a key, '*', '!' or '(', not '&'"},
      {"=1", 0, 1, "expected a key, '*', '!' or '(', not '='"},
      {"a=1 b=2", 4, 1, "expected '&', '|' or the end, not 'b'"},
      {"alpha beta", 6, 4, "expected '&', '|' or the end, not 'beta'"},
      {"(a=1", 0, 1, "this '(' is never closed"},
      {"(a=1 b)", 5, 1, "expected '&', '|' or ')', not 'b'"},
      {"a=1)", 3, 1, "expected '&', '|' or the end, not ')'"},
      {"a=", 2, 1, "expected a value, or '\"\"' for an empty one, but the expression ends here"},
      {"a= & b", 3, 1, "expected a value, or '\"\"' for an empty one, not '&'"},
      {"*", 0, 1, "'*' needs a value: '*=VALUE' tests whether any key has it"},
      {"*=*", 0, 3, "'*' needs a value: '*=VALUE' tests whether any key has it"},
      {"ns:*=1", 0, 4, "'*' takes no name space"},
      {"ns:", 3, 1, "expected a key after the name space, but the expression ends here"},
      {"a:b:c", 3, 1, "a key has one name space: put the key in quotes"},
      {"a=b*", 3, 1, "there are no patterns: '*' stands alone, or in quotes"},
      {"a=*b", 2, 1, "there are no patterns: '*' stands alone, or in quotes"},
      {"top*=b", 3, 1, "there are no patterns: '*' stands alone, or in quotes"},
      {"a=b=c", 3, 1, "put a value with '=' in quotes"},
      {"a=b!", 3, 1, "put a value with '!' in quotes"},
      {"a=\"b", 2, 1, "this quote is never closed"},
      {"\"\"=1", 0, 2, "a key cannot be empty"},
  };
  for (const auto &expected : cases) {
    const Mistake found = mistake(expected.text);
    EXPECT_EQ(found.what, expected.what) << expected.text;
    EXPECT_EQ(found.position, expected.position) << expected.text;
    EXPECT_EQ(found.length, expected.length) << expected.text;
  }
}

TEST(Expression, TheMarkStandsUnderThePlace) {
  const std::string text = "größe=1\tb=2";
  try {
    parse_expression(text);
    FAIL();
  } catch (const SyntaxError &error) {
    EXPECT_EQ(shown(error, text), "in the expression\n"
                                  "  größe=1 b=2\n"
                                  "          ^\n"
                                  "expected '&', '|' or the end, not 'b'");
  }
}

TEST(Expression, TooManyCombinationsAreRefused) {
  std::string text = "(a=1|a=2)";
  for (int count = 0; count < 12; ++count)
    text += " & (k" + std::to_string(count) + "=1|k" + std::to_string(count) + "=2)";
  EXPECT_NE(mistake(text).what.find("more than 4096 combinations"), std::string::npos);
  EXPECT_NE(mistake(std::string(300, '(') + "a").what.find("nested too deeply"), std::string::npos);
}

TEST(Expression, GroupsBesideEachOtherAreNotNested) {
  std::string text = "(a=1)";
  for (int count = 0; count < 300; ++count)
    text += " | (a=1)";
  EXPECT_EQ(form(text), form("a=1"));
}

TEST(Expression, AKeyMayBeNamedNot) {
  for (const char *text : {"not", "(not)", "not | not"})
    EXPECT_EQ(form(text), form("\"not\"")) << text;
}

TEST(Expression, WrittenBackItReadsTheSame) {
  for (const char *text :
       {"a=1", "!a", "*!=\"\"", "\"odd key\"!='x'", "tns1:a=1 & b | c=\"a\\\"b\"", "a=\"*\""}) {
    const std::string written = to_string(parse_expression(text));
    EXPECT_EQ(form(written), form(text)) << written;
  }
}

TEST(Expression, ArgumentsReportMistakesAsUsage) {
  EXPECT_THROW(expression_argument(std::vector<std::string>{"a=1", "&"}), UsageError);
  EXPECT_EQ(to_string(expression_argument(std::vector<std::string>{"a=1", "and", "b"})), "a=1 & b");
}

Pair pair(const std::string &key, const std::string &value, const std::string &name_space = "") {
  Pair result;
  result.key = key;
  result.value = value;
  result.name_space = name_space;
  return result;
}

Record port_event() {
  Record record;
  record.pairs = {pair("topic0", "Device", "tns1"), pair("port", "2"), pair("state", "")};
  return record;
}

TEST(Evaluate, SaysWhichTestFailedAndWhy) {
  const Record record = port_event();
  const auto reason = [&](const char *text) {
    const Finding finding = evaluate(parse_expression(text).lists.front().front(), record);
    return (finding.holds ? "yes: " : "no: ") + finding.reason;
  };
  EXPECT_EQ(reason("port=2"), "yes: port is 2");
  EXPECT_EQ(reason("port=1"), "no: port is 2");
  EXPECT_EQ(reason("port!=1"), "yes: port is 2");
  EXPECT_EQ(reason("port!=2"), "no: port is 2");
  EXPECT_EQ(reason("port"), "yes: port is there");
  EXPECT_EQ(reason("!port"), "no: port is there");
  EXPECT_EQ(reason("state=1"), "no: state is empty");
  EXPECT_EQ(reason("prot=2"), "no: there is no prot; did you mean port?");
  EXPECT_EQ(reason("level"), "no: there is no level; there are topic0, port, state");
  EXPECT_EQ(reason("!level"), "yes: there is no level");
  EXPECT_EQ(reason("level!=1"), "yes: there is no level");
  EXPECT_EQ(reason("*=Device"), "yes: topic0 is Device");
  EXPECT_EQ(reason("*=x"), "no: no key has the value x");
  EXPECT_EQ(reason("*!=2"), "no: port is 2");
  EXPECT_EQ(reason("*!=x"), "yes: no key has the value x");
  EXPECT_EQ(reason("tns1:topic0=Device"), "yes: topic0 is Device");
  EXPECT_EQ(reason("tns2:topic0=Device"), "no: topic0 is in the name space tns1");
  EXPECT_EQ(reason("tns1:port=2"), "no: port is in no name space");
  EXPECT_EQ(reason("!tns2:topic0=x"), "no: topic0 is in the name space tns1, and a test with a "
                                      "name space fails in any other");
}

TEST(Evaluate, OpenValuesFitPlainTests) {
  Record record = port_event();
  record.pairs[1].open = true;
  EXPECT_TRUE(holds(parse_expression("port=7"), record));
  EXPECT_TRUE(holds(parse_expression("port!=7"), record));
  EXPECT_TRUE(holds(parse_expression("*=7"), record));
  EXPECT_TRUE(holds(parse_expression("*!=7"), record));
  EXPECT_FALSE(holds(parse_expression("!port"), record));
}

// What is explained must be what happens: random expressions against random events and
// declarations, both verdicts side by side.
TEST(Evaluate, AgreesWithTheLibrary) {
  std::mt19937 random{20260131};
  const auto any_of = [&](int bound) {
    return static_cast<int>(random() % static_cast<unsigned>(bound));
  };
  const std::string keys[] = {"a", "b", "c"};
  const std::string values[] = {"", "1", "2"};
  const std::string spaces[] = {"", "", "n", "m"};
  int fits = 0;
  constexpr int rounds = 20000;
  for (int round = 0; round < rounds; ++round) {
    Record record;
    for (const std::string &key : keys)
      if (any_of(3) > 0)
        record.pairs.push_back(pair(key, values[any_of(3)], spaces[any_of(4)]));
    const bool declared = any_of(2) == 0;
    if (declared)
      for (Pair &each : record.pairs)
        each.open = any_of(3) == 0;
    Expression expression{.lists = {}};
    for (int lists = 1 + any_of(2); lists > 0; --lists) {
      AndList list;
      for (int tests = any_of(4); tests >= 0; --tests) {
        varro2::cli::Test test;
        const int kind = any_of(4);
        test.any_key = kind == 0;
        test.any_value = kind == 1;
        if (!test.any_key) {
          test.key = keys[any_of(3)];
          test.name_space = spaces[any_of(4)];
        }
        if (!test.any_value)
          test.value = values[any_of(3)];
        test.negated = any_of(3) == 0;
        list.push_back(test);
      }
      expression.lists.push_back(list);
    }
    const OwnedExpression built = build(expression);
    const OwnedDeclaration declaration = make_declaration(record);
    const OwnedEvent event = make_event(record);
    const bool expected = declared ? event_declaration_contains(declaration.get(), built.get())
                                   : event_contains(event.get(), built.get());
    ASSERT_EQ(holds(expression, record), expected) << to_string(expression);
    fits += expected;
  }
  EXPECT_GT(fits, rounds / 10);
  EXPECT_LT(fits, rounds * 9 / 10);
}

TEST(Build, EachOfSeveralTestsOnAKeyHasItsNameSpace) {
  const OwnedExpression built = build(parse_expression("n:a=1 & n:a!=2 & m:a=3"));
  GList *raw = subscribe_expression_get_raw(built.get());
  ASSERT_EQ(g_list_length(raw), 1u);
  std::set<std::string> tests;
  for (const GList *at = static_cast<GList *>(raw->data); at != nullptr; at = at->next) {
    const auto &test = *static_cast<const KeyValueRaw *>(at->data);
    tests.insert(std::string{test.name_space} + (test.negated ? " not " : " ") + test.value);
  }
  subscribe_expression_free_raw(raw);
  EXPECT_EQ(tests, (std::set<std::string>{"n 1", "n not 2", "m 3"}));
}

} // namespace
} // namespace varro2::cli
