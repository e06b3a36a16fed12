// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperator/CKvFlightDataDbOperator.h"

#include <QtCore/QTemporaryDir>

// An operator with the signals by which a host reaches its private slots.
class Host : public QObject
{
    Q_OBJECT

public:
    explicit Host(EUploadEnv env, const QString& file = {});

    // One pass of OncePerRequest over the file; returns when it has ended.
    void drain();

private:
    const QTemporaryDir m_project; // empty; without any, the operator would have no connection

public:
    CKvFlightDataDbOperator op;

Q_SIGNALS:
    void message(QByteArray);
    void positions(QJsonArray, QString, QString);
    void signedIn();
    void tick();
};

void setProject(const QString& folder);

// Small requests that an upload object sends in a second, one after the other.
constexpr int SmallRequests = 50;
double postSmallOnes(const QByteArray& url, const QByteArray& body);

// Sends everything that waits in the file to the server; the seconds that took.
double drainFile(const QString& file, const QByteArray& url);
