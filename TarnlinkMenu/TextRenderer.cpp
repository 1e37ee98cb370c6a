#include "TarnCore/Text.h"
#include "TarnlinkMenu/Scenes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace tarn {
namespace {

using namespace view;

constexpr std::size_t gap = 2;
constexpr std::size_t barWidth = 20;
/// Texts beside each other are not squeezed below this.
constexpr std::size_t narrowest = 12;
/// To find out how wide something would like to be.
constexpr std::size_t unlimited = 1'000'000;

using Lines = std::vector<std::string>;

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

std::size_t width(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
}

std::size_t width(const Lines &lines) {
    std::size_t widest = 0;
    for (const auto &line : lines)
        widest = std::max(widest, width(line));
    return widest;
}

/// Takes the first characters off a word.
std::string takeFront(std::string &word, std::size_t columns) {
    std::size_t size = 0;
    for (std::size_t taken = 0; size < word.size(); ++size)
        if (beginsCharacter(word[size]) && taken++ == columns)
            break;
    std::string front = word.substr(0, size);
    word.erase(0, size);
    return front;
}

void append(Lines &lines, Lines more, const std::string &indentation = {}) {
    for (auto &line : more)
        lines.push_back(indentation + std::move(line));
}

Lines wrapped(std::string_view text, std::size_t columns) {
    Lines lines;
    for (;;) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto paragraph = text::printable(text.substr(0, end));
        std::string line;
        std::string_view rest = paragraph;
        while (const auto piece = text::nextPiece(rest, ' ')) {
            std::string word(*piece);
            if (!line.empty() && width(line) + 1 + width(word) > columns)
                lines.push_back(std::exchange(line, {}));
            while (width(word) > columns)
                lines.push_back(takeFront(word, columns));
            line += (line.empty() || word.empty() ? "" : " ") + word;
        }
        lines.push_back(std::move(line));
        if (end == text.size())
            return lines;
        text.remove_prefix(end + 1);
    }
}

std::string bracketed(char opening, const std::string &content, char closing, bool isEnabled) {
    const std::string mark = isEnabled ? "" : "-";
    return opening + mark + content + mark + closing;
}

Lines draw(const View &view, std::size_t columns);

Lines drawColumn(const Views &children, std::size_t columns, bool isSpread) {
    Lines lines;
    for (const auto &child : children) {
        if (isSpread && !lines.empty())
            lines.emplace_back();
        append(lines, draw(child, columns));
    }
    return lines;
}

/// Next to each other, each in the room that it has.
Lines drawBeside(const std::vector<Lines> &blocks, const std::vector<std::size_t> &starts) {
    Lines lines;
    for (std::size_t i = 0; i < blocks.size(); ++i)
        for (std::size_t y = 0; y < blocks[i].size(); ++y) {
            lines.resize(std::max(lines.size(), y + 1));
            if (!blocks[i][y].empty())
                lines[y] += std::string(starts[i] - width(lines[y]), ' ') + blocks[i][y];
        }
    return lines;
}

Lines drawRow(const Views &children, std::size_t columns) {
    struct Cell {
        const View *view;
        std::size_t width;
        std::size_t spacersBefore;
    };
    std::vector<Cell> cells;
    std::size_t spacers = 0, spacersHere = 0, total = 0;
    for (const auto &child : children) {
        if (std::holds_alternative<Spacer>(child.node)) {
            ++spacersHere;
        } else if (const auto natural = width(draw(child, unlimited)); natural > 0) {
            total += natural + (cells.empty() ? 0 : gap);
            spacers += spacersHere;
            cells.push_back({&child, natural, std::exchange(spacersHere, 0)});
        }
    }
    spacers += spacersHere;

    const auto slack = columns > total && columns != unlimited ? columns - total : 0;
    if (total > columns) {
        // Controls keep their width; what wraps shares the rest, the narrowest first.
        std::vector<Cell *> flexible;
        std::size_t room = columns;
        for (auto &cell : cells) {
            const auto &node = cell.view->node;
            const bool isFlexible = std::holds_alternative<Text>(node) ||
                                    std::holds_alternative<Column>(node) || std::holds_alternative<Row>(node);
            const auto taken = (&cell == &cells.front() ? 0 : gap) + (isFlexible ? 0 : cell.width);
            room -= std::min(room, taken);
            if (isFlexible)
                flexible.push_back(&cell);
        }
        std::ranges::sort(flexible, {}, &Cell::width);
        bool isTooNarrow = flexible.empty();
        for (std::size_t i = 0; i < flexible.size(); ++i) {
            const auto share = room / (flexible.size() - i);
            isTooNarrow = isTooNarrow || (flexible[i]->width > share && share < narrowest);
            flexible[i]->width = std::min(flexible[i]->width, share);
            room -= flexible[i]->width;
        }
        if (isTooNarrow)
            return drawColumn(children, columns, false);
    }

    std::vector<Lines> blocks;
    std::vector<std::size_t> starts;
    std::size_t at = 0;
    for (const auto &cell : cells) {
        const auto extra = spacers == 0 ? 0 : slack * cell.spacersBefore / spacers;
        at += extra + (blocks.empty() ? 0 : gap);
        starts.push_back(at);
        blocks.push_back(draw(*cell.view, cell.width));
        at += cell.width;
    }
    return drawBeside(blocks, starts);
}

struct Drawing {
    std::size_t columns;

    Lines operator()(const Text &text) const { return wrapped(text.text, columns); }
    Lines operator()(const Symbol &symbol) const {
        return symbol.tone == Tone::warning ? Lines{"!"} : Lines{};
    }
    Lines operator()(const Dot &dot) const {
        switch (dot.color) {
        case Color::gray:
            break;
        case Color::yellow:
            return {"◐"};
        case Color::green:
            return {"●"};
        case Color::clear:
            return {" "};
        }
        return {"○"};
    }
    Lines operator()(const Button &button) const {
        return {bracketed('[', text::printable(button.title), ']', button.isEnabled)};
    }
    Lines operator()(const Toggle &toggle) const {
        const auto box = bracketed('[', toggle.isOn ? "x" : " ", ']', toggle.isEnabled) + " ";
        const auto room = columns > width(box) ? columns - width(box) : 1;
        Lines lines = wrapped(toggle.title, room);
        if (!toggle.detail.empty())
            append(lines, wrapped(toggle.detail, room));
        for (std::size_t i = 0; i < lines.size(); ++i)
            lines[i].insert(0, i == 0 ? box : std::string(width(box), ' '));
        return lines;
    }
    Lines operator()(const Picker &picker) const {
        Lines lines = wrapped(picker.title, columns);
        for (const auto &[title, tag] : picker.choices)
            append(lines, wrapped(bracketed('(', tag == picker.selected ? "•" : " ", ')', picker.isEnabled) +
                                      " " + title,
                                  columns));
        return lines;
    }
    Lines operator()(const Link &link) const {
        return wrapped(link.title + (link.url.empty() ? "" : " <" + link.url + ">"), columns);
    }
    Lines operator()(const Progress &progress) const {
        if (!progress.fraction)
            return {"[" + std::string(barWidth, '~') + "]"};
        const auto fraction = std::clamp(*progress.fraction, 0.0, 1.0);
        const auto done = static_cast<std::size_t>(std::floor(fraction * barWidth));
        return {"[" + std::string(done, '#') + std::string(barWidth - done, '-') + "] " +
                std::to_string(static_cast<int>(std::floor(fraction * 100))) + " %"};
    }
    Lines operator()(const Separator &) const {
        std::string line;
        for (std::size_t i = 0; i < columns && columns != unlimited; ++i)
            line += "─";
        return {line};
    }
    Lines operator()(const Spacer &) const { return {}; }
    Lines operator()(const Row &row) const { return drawRow(row.children, columns); }
    Lines operator()(const Column &column) const { return drawColumn(column.children, columns, false); }
    Lines operator()(const Scroll &scroll) const { return drawColumn(scroll.children, columns, true); }
};

Lines draw(const View &view, std::size_t columns) {
    return std::visit(Drawing{columns}, view.node);
}

} // namespace

std::string renderText(const View &view, int columns) {
    std::string text;
    for (auto &line : draw(view, static_cast<std::size_t>(std::max(columns, 1)))) {
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

} // namespace tarn
