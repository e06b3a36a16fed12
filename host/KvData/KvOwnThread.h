// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>
#include <QtCore/QThread>

/// Whether this is the thread on which an object lives; one that has ended leaves its objects to any other.
inline bool IsOnOwnThread(const QObject* pObject)
{
    const QThread* const pThread = pObject->thread();
    return !pThread || pThread == QThread::currentThread() || pThread->isFinished();
}

/// Stops a debug build where a method is called from another thread than its object's: what would come of it
/// is a crash now and then, or a row that is missing.
#define KV_ON_OWN_THREAD                                                                                     \
    Q_ASSERT_X(IsOnOwnThread(this), Q_FUNC_INFO,                                                             \
               "called from another thread than the object's own; use a queued connection or "               \
               "QMetaObject::invokeMethod()")
