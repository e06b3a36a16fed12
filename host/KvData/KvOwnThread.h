// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QThread>

/// Whether this is a thread of an object's; one that has ended leaves its objects to any other.
inline bool IsOwnThread(const QThread* pThread)
{
    return !pThread || pThread == QThread::currentThread() || pThread->isFinished();
}

/// Stops a debug build where a method is called from another thread than it may be: what would come of it is
/// a crash now and then, or a row that is missing.
#define KV_ON_THREAD(pThread)                                                                                \
    Q_ASSERT_X(IsOwnThread(pThread), Q_FUNC_INFO,                                                            \
               "called from another thread than the object's own; use a queued connection or "               \
               "QMetaObject::invokeMethod()")

/// The same for a method of a QObject.
#define KV_ON_OWN_THREAD KV_ON_THREAD(thread())
