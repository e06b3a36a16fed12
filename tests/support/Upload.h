// SPDX-License-Identifier: MIT
#pragma once

#include "flightdesk/words/Latin1.h"
#include "KvProjectDbOperator/CKvUpLoadObject.h"

#include <QtCore/QStringList>

/// An upload whose outcomes are kept, in order.
struct Upload : CKvUpLoadObject {
    explicit Upload(const QByteArray& url, const QByteArray& body = "data=1")
    {
        SetUrl(url);
        SetFilePathArray(body);
        connect(this, &CKvUpLoadObject::upLoadFinished, this,
                [this](const QByteArray& reply) { outcomes.append(QString::fromUtf8("finished " + reply)); });
        connect(this, &CKvUpLoadObject::NetWorkError, this, [this] { outcomes.append("error"_l1); });
        connect(this, &CKvUpLoadObject::NoLogin, this, [this] { outcomes.append("login"_l1); });
    }
    QStringList outcomes;
};
