#pragma once

#include <map>
#include <string>
#include <vector>

/// Rows of a CSV file by column name. Fields may be quoted, with doubled quotes inside.
using CCsvRow = std::map<std::string, std::string>;

/// Reads a file with a line of column names; empty when it cannot be read.
std::vector<CCsvRow> readCsv(const std::string& sPath);

/// The value of a column; empty when there is none.
std::string column(const CCsvRow& row, const std::string& sName);
