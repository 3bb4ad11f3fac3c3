// The text of an array item, laid out from its field lists: row by row, within a row field by
// field, every cell formatted by its own formatter and followed by its field's separator,
// except the very last cell.
#pragma once

#include <string>
#include <vector>

#include "config/item_model.h"

// lists[j] is field j's list (of ints, floats or texts; any other holder reads as texts);
// rows is the longest list's length, a shorter list giving empty cells beyond its end.
std::string ArrayText(const std::vector<DataField>& fields, const std::vector<Any>& lists,
                      size_t rows);
