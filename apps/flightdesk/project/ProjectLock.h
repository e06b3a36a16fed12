// SPDX-License-Identifier: MIT
#pragma once

#include "project/Project.h"

#include <QtCore/QLockFile>

/// Keeps a second program from doing in a project what one at a time may do. It ends with the object, and
/// with the process.
class ProjectLock
{
public:
    enum class Use { Recording, Uploading };

    ProjectLock(const Project& project, Use use);

    /// Takes the lock, or keeps it where it was taken before.
    /// \return who has it otherwise, in words; empty when this object has it
    QString take();
    /// Who has it, in words; empty when nobody else has. Nothing is written where nobody took it.
    QString holder();
    bool isTaken() const { return m_file.isLocked(); }
    void release() { m_file.unlock(); }

private:
    QString whyNotWritable() const;

    const Project m_project;
    const Use m_use;
    const QString m_path;
    QLockFile m_file;
};
