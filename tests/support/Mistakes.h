// SPDX-License-Identifier: MIT
#pragma once

#include "support/TestProject.h"

#include <QtCore/QMap>

/// What a log must not show.
const QByteArray Token = QByteArray("t0k3n").repeated(1000);

/// Of the clock that timers go by, but not the one that watches the test.
extern thread_local qint64 secondsAhead;

/// Posts to a server until the outcome is there.
void post(const QByteArray& server, const QByteArray& path = "/flight/upload");

/// Posts to /one, which may be overdue then, and to /two before some of them are answered.
void postTwice(bool overdue, const QByteArrayList& answered);

/// Looks once for what to upload.
void look(EUploadEnv env, const QString& file = {});

/// Every mistake of docs/troubleshooting.md under its name there, made beside a project with one mission
/// file.
extern const QMap<QString, std::function<void(const FlightProject&)>> Mistakes;
