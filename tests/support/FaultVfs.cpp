// SPDX-License-Identifier: MIT
#include "FaultVfs.h"

#include <QtCore/QDir>

#include <sqlite3.h>

#include <new>

namespace
{
using Inode = std::shared_ptr<FaultVfs::Inode>;

FaultVfs g_faults;
sqlite3_vfs* g_system;

/// SQLite reserves room for the system's file behind it.
struct OpenFile {
    sqlite3_file base;
    Inode inode;
    sqlite3_file* system() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

OpenFile* shim(sqlite3_file* file)
{
    return reinterpret_cast<OpenFile*>(file);
}

/// Passes a call on to the system's file of the same handle.
template<auto method, class... Arguments>
int pass(sqlite3_file* file, Arguments... arguments)
{
    sqlite3_file* const system = shim(file)->system();
    return (system->pMethods->*method)(system, arguments...);
}

template<FaultVfs::Step step, auto method, class... Arguments>
int passUnlessFailing(sqlite3_file* file, Arguments... arguments)
{
    const int failure = g_faults.fail(step);
    return failure == SQLITE_OK ? pass<method>(file, arguments...) : failure;
}

int close(sqlite3_file* file)
{
    const int result = pass<&sqlite3_io_methods::xClose>(file);
    shim(file)->inode.~shared_ptr();
    return result;
}

int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    const int result =
        passUnlessFailing<FaultVfs::Write, &sqlite3_io_methods::xWrite>(file, bytes, count, offset);
    if (result == SQLITE_OK) {
        shim(file)->inode->unsynced.append({offset, QByteArray(static_cast<const char*>(bytes), count)});
    }
    return result;
}

int truncate(sqlite3_file* file, sqlite3_int64 size)
{
    const int result = passUnlessFailing<FaultVfs::Write, &sqlite3_io_methods::xTruncate>(file, size);
    if (result == SQLITE_OK) {
        shim(file)->inode->unsynced.append({size, QByteArray()});
    }
    return result;
}

/// A new journal's or log's first sync stores its directory entry as well, and so all others. Nothing is
/// synced in truth, which would take most of the time.
int sync(sqlite3_file* file, int)
{
    const int result = g_faults.fail(FaultVfs::Sync);
    const Inode& inode = shim(file)->inode;
    if (result == SQLITE_OK) {
        inode->sync();
        const QByteArray path = g_faults.live.key(inode);
        if ((path.endsWith("-journal") || path.endsWith("-wal")) && g_faults.durable.value(path) != inode) {
            g_faults.durable = g_faults.live;
        }
    }
    return result;
}

sqlite3_io_methods fileMethods()
{
    using Io = sqlite3_io_methods;
    Io methods{};
    methods.iVersion = 2; // with the memory that users of a write-ahead log share
    methods.xClose = close;
    methods.xRead = passUnlessFailing<FaultVfs::Read, &Io::xRead>;
    methods.xWrite = write;
    methods.xTruncate = truncate;
    methods.xSync = sync;
    methods.xFileSize = pass<&Io::xFileSize>;
    methods.xLock = passUnlessFailing<FaultVfs::Lock, &Io::xLock>;
    methods.xUnlock = pass<&Io::xUnlock>;
    methods.xCheckReservedLock = passUnlessFailing<FaultVfs::Lock, &Io::xCheckReservedLock>;
    methods.xFileControl = pass<&Io::xFileControl>;
    methods.xSectorSize = pass<&Io::xSectorSize>;
    methods.xDeviceCharacteristics = pass<&Io::xDeviceCharacteristics>;
    methods.xShmMap = pass<&Io::xShmMap>;
    methods.xShmLock = pass<&Io::xShmLock>;
    methods.xShmBarrier = [](sqlite3_file* file) {
        sqlite3_file* const system = shim(file)->system();
        system->pMethods->xShmBarrier(system);
    };
    methods.xShmUnmap = pass<&Io::xShmUnmap>;
    return methods;
}

int open(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* outFlags)
{
    static const sqlite3_io_methods methods = fileMethods();
    file->pMethods = nullptr;
    OpenFile* const shimFile = shim(file);
    int result = g_faults.fail(FaultVfs::Open);
    if (result == SQLITE_OK) {
        result = g_system->xOpen(g_system, path, shimFile->system(), flags, outFlags);
    }
    if (result == SQLITE_OK) {
        Inode& inode = g_faults.live[path];
        if (!inode) {
            inode = std::make_shared<FaultVfs::Inode>();
        }
        new (&shimFile->inode) Inode(inode);
        file->pMethods = &methods;
    }
    return result;
}

int remove(sqlite3_vfs*, const char* path, int syncFolder)
{
    int result = g_faults.fail(FaultVfs::Delete);
    if (result == SQLITE_OK) {
        result = g_system->xDelete(g_system, path, 0);
    }
    if (result == SQLITE_OK) {
        g_faults.live.remove(path);
        if (syncFolder) {
            g_faults.durable = g_faults.live;
        }
    }
    return result;
}
} // namespace

FaultVfs& FaultVfs::install()
{
    static sqlite3_vfs vfs = [] {
        g_system = sqlite3_vfs_find(nullptr);
        sqlite3_vfs copy = *g_system;
        copy.zName = "faults";
        copy.iVersion = 2; // without system calls, which are the system's own
        copy.szOsFile += static_cast<int>(sizeof(OpenFile));
        copy.xOpen = open;
        copy.xDelete = remove;
        return copy;
    }();
    if (sqlite3_vfs_register(&vfs, 1) != SQLITE_OK) {
        qFatal("SQLite takes no file system");
    }
    return g_faults;
}

FaultVfs::Pause::Pause()
{
    ++g_faults.m_pauses;
}

FaultVfs::Pause::~Pause()
{
    --g_faults.m_pauses;
}

void FaultVfs::failAt(Step step, int n, int code, bool forGood)
{
    m_step = step;
    m_countdown = n;
    m_code = code;
    m_forGood = forGood;
    m_failures = 0;
}

int FaultVfs::fail(Step step)
{
    const bool counts = step == m_step || (m_step == Any && step != Read && step != Lock);
    if (m_pauses > 0 || m_countdown == 0 || !counts || --m_countdown > 0) {
        return SQLITE_OK;
    }
    m_countdown = m_forGood ? 1 : 0;
    ++m_failures;
    return m_code;
}

void FaultVfs::Inode::sync()
{
    for (const auto& [offset, bytes] : qAsConst(unsynced)) {
        const int end = static_cast<int>(offset) + bytes.size();
        synced.append(QByteArray(qMax(0, end - synced.size()), '\0'));
        if (bytes.isNull()) {
            synced.truncate(end);
        } else {
            synced.replace(end - bytes.size(), bytes.size(), bytes);
        }
    }
    unsynced.clear();
}

void FaultVfs::mount(const QString& folder)
{
    live.clear();
    for (const QFileInfo& entry : QDir(folder).entryInfoList(QDir::Files)) {
        QFile file(entry.absoluteFilePath());
        if (!file.open(QIODevice::ReadOnly)) {
            qFatal("cannot read %s", qPrintable(file.fileName()));
        }
        live[QFile::encodeName(file.fileName())] = std::make_shared<Inode>(Inode{file.readAll(), {}});
    }
    durable = live;
}

void FaultVfs::losePower(std::mt19937* coin)
{
    const auto kept = [coin] { return coin && (*coin)() % 2 == 0; };
    for (auto entry = live.cbegin(); entry != live.cend(); ++entry) {
        QFile::remove(QFile::decodeName(entry.key()));
    }
    const Folder entries = kept() ? live : durable;
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
        Inode inode = **entry;
        for (int i = inode.unsynced.size(); i-- > 0;) {
            if (!kept()) {
                inode.unsynced.removeAt(i);
            }
        }
        inode.sync();
        QFile file(QFile::decodeName(entry.key()));
        if (!file.open(QIODevice::WriteOnly) || file.write(inode.synced) != inode.synced.size()) {
            qFatal("cannot write %s", qPrintable(file.fileName()));
        }
    }
}
