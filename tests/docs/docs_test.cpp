// The format table of docs/configuration.md against the real formatters and printf, so the
// document cannot drift from the code.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "format/formatter.h"

namespace {

std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    std::stringstream in(line.substr(1));
    for (std::string cell; std::getline(in, cell, '|');) {
        const size_t first = cell.find_first_not_of(' ');
        cell = first == std::string::npos
                   ? ""
                   : cell.substr(first, cell.find_last_not_of(' ') - first + 1);
        if (cell.size() >= 2 && cell.front() == '`' && cell.back() == '`')
            cell = cell.substr(1, cell.size() - 2);
        cells.push_back(cell);
    }
    return cells;
}

// "N characters" stands for a text too long to show; otherwise the text itself.
void ExpectShown(const std::string& shown, const std::string& actual, const std::string& row) {
    const size_t n = shown.find(" characters");
    if (n != std::string::npos) {
        EXPECT_EQ(actual.size(), std::stoul(shown.substr(0, n))) << row;
    } else {
        EXPECT_EQ(actual, shown) << row;
    }
}

TEST(Docs, FormatTableIsWhatTheFormattersGive) {
    std::ifstream doc(FORMATV2_DOC);
    ASSERT_TRUE(doc) << FORMATV2_DOC;
    size_t rows = 0;
    char printed[8192];
    for (std::string line; std::getline(doc, line);) {
        if (line.rfind("| int |", 0) != 0 && line.rfind("| float |", 0) != 0 &&
            line.rfind("| text |", 0) != 0) {
            continue;
        }
        const auto c = Cells(line);  // type, format, value, module, printf
        ASSERT_EQ(c.size(), 5u) << line;
        std::string module;
        if (c[0] == "int") {
            const int v = std::stoi(c[2]);
            module = createFormatter<int>(v, c[1], "")->format();
            std::snprintf(printed, sizeof printed, c[1].c_str(), v);
        } else if (c[0] == "float") {
            const float v = std::stof(c[2]);
            module = createFormatter<float>(v, c[1], "")->format();
            std::snprintf(printed, sizeof printed, c[1].c_str(), static_cast<double>(v));
        } else {
            module = createFormatter<std::string>(c[2], c[1], "")->format();
            std::snprintf(printed, sizeof printed, c[1].c_str(), c[2].c_str());
        }
        ExpectShown(c[3], module, line);
        ExpectShown(c[4], printed, line);
        ++rows;
    }
    EXPECT_GE(rows, 20u) << "the format table was not found";
}

}  // namespace
