#include "benchmarks/peers/table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

void printTable(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<size_t> widths(rows[0].size());
    for (const auto& row : rows)
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    for (size_t i = 0; i < rows.size(); ++i) {
        for (size_t column = 0; column < widths.size(); ++column)
            std::printf(column == 0 ? "| %-*s |" : " %*s |", int(widths[column]),
                        rows[i][column].c_str());
        std::puts("");
        if (i > 0)
            continue;
        for (size_t column = 0; column < widths.size(); ++column)
            std::printf(column == 0 ? "| %s |" : " %s: |",
                        std::string(widths[column] - (column == 0 ? 0 : 1), '-').c_str());
        std::puts("");
    }
    std::puts("");
}

std::string number(const char* format, double value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Verdict::cell(const char* format, double measured, double target)
{
    if (std::isinf(target))
        return number(format, measured);
    ++claims;
    missed += measured > target;
    return number(format, measured) + (measured > target ? " > " : " <= ") +
           number("%.7g", target) + (measured > target ? " MISSED" : "");
}

void Verdict::print() const
{
    std::printf("%d of %d targets met.\n", claims - missed, claims);
}
