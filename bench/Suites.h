// SPDX-License-Identifier: MIT
#pragma once

#include "Report.h"

#include <QtCore/QStringList>

void benchStore(Report& report);
void benchScan(Report& report);
void benchDrain(Report& report);
void benchRequests(Report& report);
void benchMemory(Report& report);
// Of the telemetry logs, recorded with flightdesk; without one, of a log with frames of the usual size.
void benchLine(Report& report, const QStringList& logs);
// What flightdesk takes to write a project's flights into one file.
void benchExport(Report& report);
void benchServer(Report& report);
// Of it, what the project's own clients see, and what TLS costs.
void benchServerClients(Report& report);

// Several of them on PostgreSQL, and what happens when one dies.
void benchFleet(Report& report);

// What a process of its own measures for benchMemory(): prints its figures.
void measureInChild(const QStringList& arguments);
