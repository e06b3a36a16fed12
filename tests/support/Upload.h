// SPDX-License-Identifier: MIT
#pragma once

#include "KvProjectDbOperator/CKvUpLoadObject.h"

#include <QtCore/QStringList>

/// An upload whose outcomes are kept, in order.
struct Upload : CKvUpLoadObject {
    explicit Upload(const QByteArray& url, const QByteArray& body = "data=1")
    {
        SetUrl(url);
        SetFilePathArray(body);
        connect(this, &CKvUpLoadObject::upLoadFinished, this,
                [this](const QByteArray& reply) { outcomes.append("finished " + reply); });
        connect(this, &CKvUpLoadObject::NetWorkError, this, [this] { outcomes.append("error"); });
        connect(this, &CKvUpLoadObject::NoLogin, this, [this] { outcomes.append("login"); });
    }
    QStringList outcomes;
};
