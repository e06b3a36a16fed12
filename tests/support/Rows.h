// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Adds the rows of the test function whose data are asked for: rows/<function>.txt, a line each below the
/// names of the columns, with "|" between the cells. The first cell is the row's name as well.
void addRows();

/// A cell of the row that is being tested.
QString cell(const char* column);
