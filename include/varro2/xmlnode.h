/**
 * @file xmlnode.h
 * A small tree of XML elements: parse, build, read, write.
 *
 * An element has a name, attributes, child elements and a text. White space between elements,
 * comments and processing instructions are no nodes. Texts are UTF-8.
 *
 * The parser refuses what a record of keys and values never needs and an attacker would use:
 * entity declarations, external parts and attribute lists in a DOCTYPE, and elements nested more
 * than 1,024 deep.
 */
#ifndef VARRO2_XMLNODE_H
#define VARRO2_XMLNODE_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** One attribute of an element. */
typedef struct XmlAttribute {
  char *name;  /**< never NULL */
  char *value; /**< never NULL */
} XmlAttribute;

/**
 * An element, made by xmlnode_create_node() or the parser and nowhere else. Everything in it
 * belongs to the tree. The name may be set directly, to a g_malloc'ed text; the other fields are
 * for reading, and are filled through the functions below.
 */
typedef struct XmlNode {
  char *name;      /**< NULL until set */
  GList *children; /**< of XmlNode *, in document order */
  char *text;      /**< all character data of the element itself in one, NULL when there is none */
  GList *attributes; /**< of XmlAttribute *, in document order, each name once */
} XmlNode;

/** Makes an element without name, attributes, children and text. The caller owns it. */
VARRO2_API XmlNode *xmlnode_create_node(void) VARRO2_NOEXCEPT;

/** Gives the element an attribute; name and value are copied. One of that name gets the new value
 * and keeps its place. */
VARRO2_API void xmlnode_add_attribute(XmlNode *node, const char *name,
                                      const char *value) VARRO2_NOEXCEPT;

/** The attribute's value, which belongs to the node, or NULL when there is no such attribute. */
VARRO2_API const char *xmlnode_get_attribute_value(const XmlNode *node,
                                                   const char *name) VARRO2_NOEXCEPT;

/** Appends child, which from then on belongs to parent. */
VARRO2_API void xmlnode_add_child(XmlNode *parent, XmlNode *child) VARRO2_NOEXCEPT;

/**
 * Writes the tree as XML without declaration and line breaks; g_free() the result. Every element
 * must have a name. An element's text is written before its children.
 *
 * Line feeds, carriage returns and tabs in attributes are written as they are, and therefore read
 * back as spaces. A character that XML cannot carry (most control characters, bytes that are no
 * UTF-8) is written as U+FFFD, so that the document stays readable.
 * @return NULL when an element has no name.
 */
VARRO2_API char *xmlnode_get_xml(const XmlNode *node) VARRO2_NOEXCEPT;

/** As xmlnode_get_xml(), but line feeds, carriage returns and tabs in attributes are written as
 * character references and read back as what they were. */
VARRO2_API char *xmlnode_get_xml_escape_newline(const XmlNode *node) VARRO2_NOEXCEPT;

/** Frees the element and everything below it. NULL is accepted. The node must have no parent. */
VARRO2_API void xmlnode_free_tree(XmlNode *node) VARRO2_NOEXCEPT;

/**
 * Reads a whole document with its name spaces: names of elements and attributes come without
 * prefix, declarations of name spaces are no attributes, an undeclared prefix is a failure. Where
 * two attributes of an element would then have the same name, the one written without prefix
 * stays, or else the first.
 * @return the root, owned by the caller, or NULL when the text is no such document.
 */
VARRO2_API XmlNode *xmlnode_parse_string(const char *xml) VARRO2_NOEXCEPT;

/** As xmlnode_parse_string(), but all names stay as they are written and need no declaration. */
VARRO2_API XmlNode *xmlnode_parse_string_no_ns(const char *xml) VARRO2_NOEXCEPT;

/** Reads a file as xmlnode_parse_string() reads a text. NULL, without a message, also when the file
 * cannot be read, is not a regular file or is larger than 1 MiB. Never waits for a FIFO. */
VARRO2_API XmlNode *xmlnode_load_file(const char *path) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
