// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// What a pilot may meet.
enum class Trouble {
    NoProject,
    ReadOnlyProject,
    InUse,
    DiskFull,
    NoRoom,
    DiskReadOnly,
    NotStored,
    Stopped,
    NoLog,
    Unreadable,
    BadChecksums,
    BadTimes,
    SameLog,
    BrokeOff,
    NotMarkable,
    NotSendable,
    NoNetwork,
    UnknownHost,
    NoConnection,
    NoAnswer,
    CutLine,
    Certificate,
    WrongAddress,
    TooLarge,
    ServerError,
    NoServer,
    TokenRejected,
    RowsRefused,
    NoScheme,
};

/// What is said of it. %1, %2, ... stand for what differs.
struct TroubleText {
    Trouble trouble;
    const char* what; ///< what happened
    const char* safe; ///< what is safe
    const char* todo; ///< what to do
};

/// All of them, in the order in which a flight may meet them.
const QVector<TroubleText>& allTroubles();
/// What happened, without the rest; empty details leave the places of %1, %2, ... empty.
QString troubleHeadline(Trouble trouble, const QStringList& details = {});
/// "What happened, what is safe. What to do."
QString troubleWords(Trouble trouble, const QStringList& details = {});

/// A length of time as in "4 s", "22:57" and "1:02:03".
QString durationWords(qint64 seconds);
