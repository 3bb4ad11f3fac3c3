// A small XML writer for the runner's reports: elements one per line, indented by depth, and
// every text, attribute value or content, through one escape (XmlEscape). Names are the
// caller's literals and are not escaped.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace preview {

// text as XML 1.0 can hold it, in an attribute value or in content: & < > " as entities; a
// byte of no UTF-8 sequence as \xHH and a control character other than tab and line feed as
// the text reports show it (\r, \xHH), since XML 1.0 has no way to carry them; U+FFFE and
// U+FFFF, which are no XML characters either, as \uFFFE and \uFFFF. In an attribute, tab and
// line feed become character references, which a reader does not turn into blanks.
std::string XmlEscape(const std::string& text, bool attribute);

class XmlWriter {
  public:
    using Attributes = std::vector<std::pair<const char*, std::string>>;

    // Starts the document with its declaration (UTF-8).
    XmlWriter();

    // <name attributes>, and what follows is inside it until End.
    void Start(const char* name, const Attributes& attributes);
    void End();
    // An element without children: <name attributes/>, or <name attributes>content</name>.
    void Leaf(const char* name, const Attributes& attributes);
    void Leaf(const char* name, const Attributes& attributes, const std::string& content);

    // Ends every element still open and hands the document over.
    std::string Finish();

  private:
    void Open(const char* name, const Attributes& attributes);

    std::string m_out;
    std::vector<const char*> m_open;
};

}  // namespace preview
