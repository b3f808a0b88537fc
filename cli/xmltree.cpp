#include "xmltree.hpp"

#include "owned.hpp"

#include <expat.h>
#include <glib.h>

#include <cstring>

namespace varro2::cli {
namespace {

constexpr std::size_t most_levels = 1000;

class Reader {
 public:
  std::unique_ptr<Element> read(std::string_view text, XmlMistake &mistake) {
    const Owned<XML_ParserStruct, XML_ParserFree> parser{XML_ParserCreateNS(nullptr, '\x01')};
    parser_ = parser.get();
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(parser_, on_begin, on_end);
    XML_SetCharacterDataHandler(parser_, on_text);
    XML_SetEntityDeclHandler(parser_, on_entity);
    const XML_Status status =
        XML_Parse(parser_, text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (refused_ == nullptr && status == XML_STATUS_OK)
      return std::move(root_);
    mistake.line = XML_GetCurrentLineNumber(parser_);
    mistake.column = XML_GetCurrentColumnNumber(parser_) + 1;
    mistake.text = refused_ != nullptr
                       ? refused_
                       : std::string{"no XML: "} + XML_ErrorString(XML_GetErrorCode(parser_));
    return nullptr;
  }

 private:
  static std::string local(const char *name) {
    const char *separator = std::strchr(name, '\x01');
    return separator != nullptr ? separator + 1 : name;
  }

  static void XMLCALL on_begin(void *data, const char *name, const char **attributes) {
    auto &reader = *static_cast<Reader *>(data);
    auto element = std::make_unique<Element>();
    element->name = local(name);
    element->line = XML_GetCurrentLineNumber(reader.parser_);
    element->column = XML_GetCurrentColumnNumber(reader.parser_) + 1;
    for (; *attributes != nullptr; attributes += 2)
      element->attributes.emplace_back(local(attributes[0]), attributes[1]);
    Element *entered = element.get();
    if (reader.open_.empty())
      reader.root_ = std::move(element);
    else
      reader.open_.back()->children.push_back(std::move(element));
    reader.open_.push_back(entered);
    if (reader.open_.size() > most_levels)
      reader.refuse("elements are nested too deeply");
  }
  static void XMLCALL on_end(void *data, const char *) {
    static_cast<Reader *>(data)->open_.pop_back();
  }
  static void XMLCALL on_text(void *data, const char *text, int length) {
    auto &reader = *static_cast<Reader *>(data);
    for (int index = 0; index < length && !reader.open_.empty(); ++index)
      if (!g_ascii_isspace(text[index]))
        reader.open_.back()->has_text = true;
  }
  static void XMLCALL on_entity(void *data, const char *, int, const char *, int, const char *,
                                const char *, const char *, const char *) {
    auto &reader = *static_cast<Reader *>(data);
    reader.refuse("entities cannot be declared here");
  }

  void refuse(const char *why) {
    refused_ = why;
    XML_StopParser(parser_, XML_FALSE);
  }

  XML_Parser parser_ = nullptr;
  std::unique_ptr<Element> root_;
  std::vector<Element *> open_;
  const char *refused_ = nullptr; // what is well-formed, but not read
};

} // namespace

const std::string *Element::find(std::string_view attribute) const {
  for (const auto &[key, value] : attributes)
    if (key == attribute)
      return &value;
  return nullptr;
}

std::string Element::get(std::string_view attribute) const {
  const std::string *value = find(attribute);
  return value != nullptr ? *value : "";
}

bool Element::is_true(std::string_view attribute) const {
  return g_ascii_strcasecmp(get(attribute).c_str(), "true") == 0;
}

std::unique_ptr<Element> read_xml_tree(std::string_view text, XmlMistake &mistake) {
  return Reader{}.read(text, mistake);
}

} // namespace varro2::cli
