// SPDX-License-Identifier: MIT
#include "operator/LogFeed.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

namespace
{
/// What the message handler, which is called from any thread, hands replies to.
struct Receiver {
    QMutex mutex;
    LogFeed* feed = nullptr;
    QtMessageHandler others = nullptr;
};

Receiver& receiver()
{
    static Receiver receiver;
    return receiver;
}

void sort(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (qstrcmp(context.category, "kv.reply") == 0) {
        const QMutexLocker lock(&receiver().mutex);
        if (receiver().feed) {
            Q_EMIT receiver().feed->reply(text);
        }
    } else {
        receiver().others(type, context, text);
    }
}
} // namespace

LogFeed::LogFeed()
{
    Logger::instance().setListener(
        [this](Level level, const QString& text) { Q_EMIT line(text, static_cast<int>(level)); });
    const QMutexLocker lock(&receiver().mutex);
    receiver().feed = this;
    if (!receiver().others) {
        receiver().others = qInstallMessageHandler(sort); // once: others may have put theirs before it later
    }
}

LogFeed::~LogFeed()
{
    Logger::instance().setListener({});
    const QMutexLocker lock(&receiver().mutex);
    receiver().feed = nullptr;
}
