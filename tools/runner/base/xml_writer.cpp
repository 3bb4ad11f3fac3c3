#include "base/xml_writer.h"

#include <cstdio>
#include <utility>

#include "base/diag.h"

namespace preview {

std::string XmlEscape(const std::string& text, bool attribute) {
    // Bytes of no UTF-8 sequence first: what is left is well-formed UTF-8.
    const std::string utf8 = EscapeInvalidUtf8(text, Escape::kText);
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        switch (c) {
            case '&':
                out += "&amp;";
                continue;
            case '<':
                out += "&lt;";
                continue;
            case '>':
                out += "&gt;";
                continue;
            case '"':
                out += "&quot;";
                continue;
            case '\n':
                out += attribute ? "&#10;" : "\n";
                continue;
            case '\t':
                out += attribute ? "&#9;" : "\t";
                continue;
            case '\r':
                out += "\\r";
                continue;
            default:
                break;
        }
        if (c < 0x20) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else if (c == 0xEF && utf8.compare(i + 1, 1, "\xBF") == 0 && i + 2 < utf8.size() &&
                   (utf8[i + 2] == '\xBE' || utf8[i + 2] == '\xBF')) {
            out += utf8[i + 2] == '\xBE' ? "\\uFFFE" : "\\uFFFF";
            i += 2;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

XmlWriter::XmlWriter() : m_out("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") {}

void XmlWriter::Open(const char* name, const Attributes& attributes) {
    m_out.append(2 * m_open.size(), ' ');
    m_out += '<';
    m_out += name;
    for (const auto& a : attributes) {
        m_out += ' ';
        m_out += a.first;
        m_out += "=\"";
        m_out += XmlEscape(a.second, true);
        m_out += '"';
    }
}

void XmlWriter::Start(const char* name, const Attributes& attributes) {
    Open(name, attributes);
    m_out += ">\n";
    m_open.push_back(name);
}

void XmlWriter::End() {
    const char* name = m_open.back();
    m_open.pop_back();
    m_out.append(2 * m_open.size(), ' ');
    m_out += "</";
    m_out += name;
    m_out += ">\n";
}

void XmlWriter::Leaf(const char* name, const Attributes& attributes) {
    Open(name, attributes);
    m_out += "/>\n";
}

void XmlWriter::Leaf(const char* name, const Attributes& attributes, const std::string& content) {
    Open(name, attributes);
    m_out += '>';
    m_out += XmlEscape(content, false);
    m_out += "</";
    m_out += name;
    m_out += ">\n";
}

std::string XmlWriter::Finish() {
    while (!m_open.empty()) End();
    return std::move(m_out);
}

}  // namespace preview
