// Markdown tables with aligned columns, readable in a terminal and in a document.
#pragma once

#include <string>
#include <vector>

/// rows[0] is the head; all rows are equally long.
void printTable(const std::vector<std::vector<std::string>>& rows);

/// printf for one number.
std::string number(const char* format, double value);
