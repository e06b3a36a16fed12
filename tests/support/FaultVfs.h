// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QPair>
#include <QtCore/QStringList>
#include <QtCore/QtGlobal>

#include <memory>
#include <random>

/// The disk as SQLite sees it in this process, once install() has run: every step goes on to the system's
/// own file system unless it was told to fail, and what a loss of power would leave is kept book of.
/// For one thread.
class FaultVfs
{
public:
    enum Step { Open, Read, Write, Sync, Lock, Delete, Any };
    static constexpr const char* Names[] = {"open", "read", "write", "sync", "lock", "delete"};

    static FaultVfs& install();

    /// Lets the n-th step of a kind from now on fail, counted from 1, and all later ones as well where it is
    /// for good.
    void failAt(Step step, int n, int code, bool forGood);
    /// Every step passes from now on.
    void clear() { m_countdown = 0; }
    /// While one of these lives, steps neither fail nor count.
    struct Pause {
        Pause();
        ~Pause();
        Q_DISABLE_COPY(Pause)
    };
    /// Steps that have failed since failAt().
    int failures() const { return m_failures; }

    /// Forgets all files and takes those of a folder as they stand for stored.
    void mount(const QString& folder);
    /// Gives the folder the contents that a loss of power leaves: only what was synced or, where a
    /// coin is given, also as much of the rest as it says, write by write.
    void losePower(std::mt19937* coin);

    // For the shim's own functions.
    struct Inode {
        QByteArray synced;
        QList<QPair<qint64, QByteArray>> unsynced; ///< writes; a null text cuts the file off there
        void sync();
    };
    using Folder = QHash<QByteArray, std::shared_ptr<Inode>>;
    int fail(Step step);
    Folder live;    ///< directory entries as programs see them
    Folder durable; ///< as they are stored

private:
    Step m_step = Any;
    int m_countdown = 0;
    int m_code = 0;
    bool m_forGood = false;
    int m_failures = 0;
    int m_pauses = 0;
};
