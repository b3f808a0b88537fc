// Writes the seeds, which are kept beside the targets, anew: seeds FOLDER makes FOLDER/TARGET/NAME.
#include "plain.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace varro2::fuzz {
namespace {

class Folder {
 public:
  explicit Folder(std::filesystem::path path) : path_{std::move(path)} {}

  void write(const char *target, const std::string &name, std::string_view bytes) const {
    std::filesystem::create_directories(path_ / target);
    std::ofstream{path_ / target / name, std::ios::binary} << bytes;
  }

 private:
  std::filesystem::path path_;
};

PlainPair pair(std::string key, std::string value, std::string name_space = "") {
  PlainPair made;
  made.key = std::move(key);
  made.value = std::move(value);
  made.name_space = std::move(name_space);
  return made;
}

PlainPair any_value(std::string key, bool negated = false) {
  PlainPair made = pair(std::move(key), "");
  made.any_value = true;
  made.negated = negated;
  return made;
}

PlainPair any_key(std::string value, bool negated = false) {
  PlainPair made = pair("", std::move(value));
  made.any_key = true;
  made.negated = negated;
  return made;
}

PlainContainer container(std::uint8_t type, std::vector<PlainPair> pairs,
                         std::vector<std::string> tags = {}) {
  PlainContainer made;
  made.type = type;
  made.tags = std::move(tags);
  for (const PlainPair &each : pairs)
    made.lists.back().add(each);
  return made;
}

std::vector<PlainPair> facts() {
  PlainPair port = pair("port", "1");
  port.type = 1;
  port.tags = {"onvif-source", "property-state"};
  port.key_nice_name = "Port";
  port.value_nice_name = "First";
  port.user_string = "user";
  port.complex_type = "Complex";
  PlainPair state = pair("a", "1");
  state.type = 2;
  state.tags = {"onvif-data"};
  PlainPair level = pair("level", "0.500000");
  level.type = 3;
  level.tags = {"onvif-key"};
  PlainPair document = pair("Conf", "<Cfg x='1'><Item>p</Item><Item>q</Item></Cfg>");
  document.tags = {"onvif-data", "onvif-element"};
  return {
      pair("topic0", "Device", "tns1"), pair("topic1", "IO", "tns1"), port, state, level, document};
}

std::vector<PlainPair> tests() {
  PlainPair other = pair("a", "2");
  other.negated = true;
  return {pair("topic0", "Device", "tns1"),
          pair("a", "1"),
          other,
          any_value("b"),
          any_value("c", true),
          any_key("1"),
          any_key("9", true)};
}

PlainContainer alternatives() {
  PlainContainer made = container(2, tests());
  made.lists.emplace_back().add(pair("a", "1", "n"));
  made.lists.emplace_back();
  return made;
}

std::vector<PlainPair> many(std::size_t count) {
  std::vector<PlainPair> pairs;
  for (std::size_t at = 0; at < count; ++at)
    pairs.push_back(pair("key" + std::to_string(at), std::to_string(at % 3)));
  return pairs;
}

// ---- The targets

void records(const Folder &folder) {
  std::vector<PlainPair> open = facts();
  open.push_back(any_value("open"));
  const std::vector<std::pair<const char *, RecordWriter>> seeds = {
      {"declaration", RecordWriter{}.u8(0).declaration(container(0, open, {"tag", "tag"}))},
      {"event", RecordWriter{}.u8(1).event(container(1, facts(), {"tag"}), "user data", true)},
      {"event-empty", RecordWriter{}.u8(0x31).u16(0).u8(0).event(container(1, {}))},
      {"event-many", RecordWriter{}.u8(1).event(container(1, many(20)))},
      {"container", RecordWriter{}.u8(2).container(alternatives())},
      {"container-plain", RecordWriter{}.u8(2).container(container(0, facts()))},
      {"list", RecordWriter{}.u8(3).list(alternatives().lists.front())},
      {"bucket", RecordWriter{}.u8(4).u8(0xF4).u16(2).pair(pair("a", "1")).pair(pair("a", "2"))},
      {"bucket-any", RecordWriter{}.u8(4).u8(0xF4).u16(1).pair(any_key("1"))},
      {"pair", RecordWriter{}.u8(5).pair(facts()[2])},
      {"pair-any", RecordWriter{}.u8(5).pair(any_key("1", true))},
      {"expression", RecordWriter{}.u8(6).expression(alternatives())},
      {"expression-many", RecordWriter{}.u8(6).expression(container(2, many(20)), 4, true)},
      {"state", RecordWriter{}.u8(7).property_state(container(3, facts()))},
      {"notification",
       RecordWriter{}.u8(8).notification(container(2, tests()), container(0, facts()))},
      {"declarations", RecordWriter{}
                           .u8(9)
                           .u32(2)
                           .declaration(container(0, facts()))
                           .declaration(container(0, {}))},
      {"declarations-none", RecordWriter{}.u8(9).u32(0)},
      {"subscription", RecordWriter{}.u8(10).expression(container(2, tests()))},
  };
  for (const auto &[name, record] : seeds)
    folder.write("records", name, record.str());
}

// What no writer makes: it is refused, or every reader stands it.
void broken_records(const Folder &folder) {
  const auto event_of = [](const PlainPair &made) {
    return RecordWriter{}.u8(1).event(container(1, {made})).str();
  };
  PlainPair odd = pair("a", "1");
  odd.type = 9;
  folder.write("records", "broken-value-type", event_of(odd));
  odd = pair("a", std::string("1\0002", 3));
  folder.write("records", "broken-nul", event_of(odd));
  odd = any_key("1");
  odd.any_value = true;
  folder.write("records", "broken-any-of-both",
               RecordWriter{}.u8(6).expression(container(2, {odd})).str());
  PlainContainer made = container(2, {pair("a", "1")});
  made.lists.front().keys.front().push_back(pair("b", "1"));
  folder.write("records", "broken-two-keys", RecordWriter{}.u8(6).expression(made).str());
  made = container(2, {any_key("1")});
  made.lists.front().any_keys.front().push_back(any_key("2"));
  folder.write("records", "broken-two-values", RecordWriter{}.u8(6).expression(made).str());
  made = container(2, {any_key("1")});
  std::swap(made.lists.front().keys, made.lists.front().any_keys);
  folder.write("records", "broken-table", RecordWriter{}.u8(6).expression(made).str());
  made = container(1, {});
  made.lists.front().keys.emplace_back();
  folder.write("records", "broken-bucket", RecordWriter{}.u8(1).event(made).str());
  made.lists.clear();
  folder.write("records", "broken-no-list", RecordWriter{}.u8(1).event(made).str());
  made = container(1, {pair("a", "1")});
  made.lists.push_back(made.lists.front());
  folder.write("records", "broken-lists", RecordWriter{}.u8(1).event(made).str());
  folder.write("records", "broken-kind",
               RecordWriter{}.u8(1).event(container(0, {pair("a", "1")})).str());
  const std::string whole = RecordWriter{}.u8(0).declaration(container(0, facts())).str();
  folder.write("records", "broken-short", std::string_view{whole}.substr(0, whole.size() - 1));
  folder.write("records", "broken-count",
               RecordWriter{}.u8(9).u32(0xFFFFFFFF).declaration(container(0, {})).str());
}

constexpr const char *declaration_text =
    "<declare internal=\"true\"><expression>"
    "<keyvalue key=\"topic0\" name-space=\"tns1\" value=\"Device\"/>"
    "<keyvalue key=\"port\" complex-type-name=\"C\" key-nice-name=\"Port\" value-nice-name=\"V\" "
    "value-user-string=\"u\" value-wildcard=\"true\" value-type=\"int\">"
    "<tag tag=\"property-state\"/><tag tag=\"onvif-source\"/></keyvalue>"
    "<keyvalue key=\"on\" value=\"1\" value-type=\"Boolean\"/>"
    "</expression><tag tag=\"all\"/></declare>";
constexpr const char *expression_text =
    "<?xml version=\"1.0\"?><!-- c --><subscribe><expression>"
    "<keyvalue key=\"a\" value=\"&lt;1&gt;&#10;\" not=\"true\"/>"
    "<keyvalue key-wildcard=\"true\" value=\"2\"/><keyvalue key=\"b\" value-wildcard=\"TRUE\"/>"
    "</expression><expression><keyvalue key=\"a\" name-space=\"n\" value=\"1\"/>"
    "<keyvalue key=\"a\" value=\"2\"/></expression></subscribe>";
constexpr const char *state_text =
    "<property><expression><keyvalue key=\"port\" value=\"1\"/>"
    "<keyvalue key=\"state\" value=\"1\" value-type=\"bool\"><tag tag=\"property-state\"/>"
    "</keyvalue></expression></property>";

void documents(const Folder &folder) {
  const std::pair<const char *, std::string> kinds[] = {
      {"declaration", declaration_text}, {"expression", expression_text}, {"state", state_text}};
  char kind = 0;
  for (const auto &[name, text] : kinds) {
    folder.write("xml", name, std::string(1, kind++) + text);
    folder.write("xmlcheck", name, text);
    folder.write("xmltree", name, text);
  }
  const std::pair<const char *, std::string> others[] = {
      {"topics-gap", "<declare><expression><keyvalue key='topic0' value='a'/>"
                     "<keyvalue key='topic2' value='b'/></expression></declare>"},
      {"two-lists", "<declare><expression/>\n<expression/></declare>"},
      {"unknown", "<declare><expression><keyvalu key='a'/></expression></declare>"},
      {"no-pairs", "<subscribe><expression/></subscribe>"},
      {"any-of-both", "<subscribe><expression><keyvalue key-wildcard='true' "
                      "value-wildcard='true'/></expression></subscribe>"},
      {"state-tag", "<property><expression><keyvalue key='a' value='1'><tag tag='property-state'/>"
                    "</keyvalue></expression><tag tag='t'/></property>"},
      {"bad-type", "<declare><expression><keyvalue key='a' value='x' value-type='int'/>"
                   "</expression>text</declare>"},
  };
  for (const auto &[name, text] : others) {
    folder.write("xmlcheck", name, text);
    folder.write("xml", name, std::string(1, name[0] == 's' ? '\2' : text[1] == 's') + text);
  }
  const std::pair<const char *, std::string> trees[] = {
      {"name-spaces", "<p:a xmlns:p='urn:x' xmlns='urn:y' p:b='1' b='2' xml:lang='de'><c/>t</p:a>"},
      {"undeclared", "<p:a q:b='1'><p:c>1</p:c><c>2</c><c d='3'/></p:a>"},
      {"repeated", "<Cfg x='1'><Item>p</Item><Item>q</Item> text <Item/></Cfg>"},
      {"entity", "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>"},
      {"attribute-list", "<!DOCTYPE a [<!ATTLIST a b CDATA 'x'>]><a/>"},
      {"doctype", "<!DOCTYPE a><a><![CDATA[<&>]]>&#x20AC;&amp;<?pi x?></a>"},
      {"latin", "<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE4'>\xFC</a>"},
      {"blanks", "<a b='\t1&#9;&#13;&#10; 2'> \n\t </a>"},
  };
  for (const auto &[name, text] : trees)
    folder.write("xmltree", name, text);
}

void expressions(const Folder &folder) {
  const char *const texts[] = {
      "topic0=Device & topic1=IO & (port=1 | port=2) & !state=0",
      "a",
      "!a and not b or *!=\"\"",
      "tns1:topic0=\"odd \\\" value\" && 'key with space'!='x' || *=5",
      "!(a=1 & (b | !c!=2)) & NOT(d==3)",
      "(a|b)&(c|d)&(e|f)&(g|h)",
      "port=* & level!=*",
      "",
      "a=1 b",
      "(a",
      "ns:*=1",
      "not=1 & order & \xC3\xA4=\xFF",
      "\"n:s\":\"k:y\"=\"*\"",
  };
  int number = 0;
  for (const char *text : texts)
    folder.write("expression", "text-" + std::to_string(number++), text);
}

void event_files(const Folder &folder) {
  const std::pair<const char *, std::string> files[] = {
      {"whole", "{\"time\":\"2026-01-31T12:30:01.250000Z\",\"topic\":\"tns1:Device/IO\","
                "\"values\":{\"topic0\":\"Device\",\"topic1\":\"IO\",\"port\":1,\"state\":true},"
                "\"open\":{\"level\":\"double\"},\"namespaces\":{\"topic0\":\"tns1\"},"
                "\"tags\":{\"port\":[\"onvif-source\"]},\"event_tags\":[\"t\"],\"property\":true,"
                "\"internal\":true,\"declaration\":3,\"producer\":1,\"names\":{\"port\":\"P\"},"
                "\"value_names\":{\"port\":\"V\"},\"user_strings\":{\"port\":\"U\"},"
                "\"complex_types\":{\"port\":\"C\"},\"type\":\"Port\",\"monotonic\":1.5}\n"},
      {"flat", "{\"a\":1,\"b\":\"x\",\"c\":0.25,\"d\":false}\n{\"a\":2}\n"},
      {"types", "{\"values\":{\"a\":\"x\",\"b\":\"1e5\",\"c\":7},"
                "\"types\":{\"a\":\"int\",\"b\":\"double\",\"c\":\"bool\"}}"},
      {"largest", "{\"a\":1.7976931348623157e308,\"b\":-9223372036854775808,\"c\":5e-324}"},
      {"notification", "{\"notification\":\"added\",\"values\":{}}\n{\"values\":{}}"},
      {"null", "{\"a\":null}"},
      {"list", "[1]"},
      {"early", "{\"values\":{\"a\":1},\"time\":\"0001-01-01T00:00:00.000001Z\"}"},
      {"before-1970", "{\"values\":{\"a\":1},\"time\":\"1969-12-31T23:59:59.250000Z\"}"},
      {"nothing", " \n"},
      {"odd", "{\"values\":{\"\\u00e4\\ud83d\\ude00\":\"\\u0001\\n\"},\"tags\":{\"x\":[]}}"},
  };
  for (const auto &[name, text] : files)
    folder.write("eventfile", name, text);
}

// A step and its arguments in these are one byte each; what they come to matters less than that
// there are enough of them.
void choices(const Folder &folder) {
  const auto counting = [](unsigned first, unsigned step, std::size_t size) {
    std::string bytes(1, static_cast<char>(first));
    for (unsigned value = 0x9E37; bytes.size() < size;) {
      value = value * 1103515245u + 12345u + step;
      bytes += static_cast<char>(value >> 16);
    }
    return bytes;
  };
  for (unsigned kind = 0; kind < 32; ++kind) {
    const std::string name = "choices-" + std::to_string(kind);
    folder.write("written", name, counting(kind, kind, 160));
    folder.write("matching", name, counting(kind, kind, kind % 8 < 3 ? 60 : 700));
    folder.write("json", name, counting(kind, kind, 120));
    folder.write("container", name, counting(kind, kind, 500));
  }
}

} // namespace
} // namespace varro2::fuzz

int main(int argc, char **argv) {
  using namespace varro2::fuzz;
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
    return 2;
  }
  const Folder folder{argv[1]};
  records(folder);
  broken_records(folder);
  documents(folder);
  expressions(folder);
  event_files(folder);
  choices(folder);
  return 0;
}
