// Markdown tables with aligned columns, readable in a terminal and in a document.
#pragma once

#include <string>
#include <vector>

/// rows[0] is the head; all rows are equally long.
void printTable(const std::vector<std::vector<std::string>>& rows);

/// printf for one number.
std::string number(const char* format, double value);

/// Counts the targets that are met.
class Verdict {
public:
    /// A cell of a table: the figure, and the most that it may be; infinity if it has no target.
    std::string cell(const char* format, double measured, double target);
    void print() const;

private:
    int claims = 0;
    int missed = 0;
};
