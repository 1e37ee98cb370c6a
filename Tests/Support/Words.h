#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace tarn {

/// The words of a text, as blanks separate them; "-" stands for an empty one.
inline std::vector<std::string> words(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> list(std::istream_iterator<std::string>(in), {});
    for (auto &word : list)
        word = word == "-" ? "" : word;
    return list;
}

/// The rows of a table, as "; " separates them.
inline std::vector<std::string> rows(const std::string &text) {
    std::istringstream in(" " + text);
    std::vector<std::string> list;
    for (std::string row; std::getline(in, row, ';');)
        list.push_back(row.substr(1));
    return list;
}

/// The two sides of "LEFT > RIGHT".
inline std::pair<std::string, std::string> sides(const std::string &row) {
    const auto mark = row.find(" > ");
    return {row.substr(0, mark), row.substr(mark + 3)};
}

} // namespace tarn
