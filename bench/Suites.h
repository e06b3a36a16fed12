// SPDX-License-Identifier: MIT
#pragma once

#include "Report.h"

#include <QtCore/QStringList>

void benchStore(Report& report);
void benchScan(Report& report);
void benchDrain(Report& report);
void benchRequests(Report& report);
void benchMemory(Report& report);

// What a process of its own measures for benchMemory(): prints its figures.
void measureInChild(const QStringList& arguments);
