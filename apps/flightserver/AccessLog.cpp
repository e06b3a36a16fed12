// SPDX-License-Identifier: MIT
#include "AccessLog.h"

#include <QtCore/QDateTime>

#include <iostream>
#include <stdexcept>

AccessLog::AccessLog(std::string path) : m_path(std::move(path))
{
    reopen();
}

void AccessLog::reopen()
{
    if (!isOn()) {
        return;
    }
    std::ofstream file(m_path, std::ios::app);
    if (!file) {
        throw std::runtime_error("cannot write access log " + m_path);
    }
    m_file = std::move(file);
}

void AccessLog::write(const AccessLine& line)
{
    const double ms = std::chrono::duration<double, std::milli>(line.time).count();
    m_file << QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toStdString() << ' ' << line.address
           << ' ' << line.path << " owner=" << line.owner << " status=" << line.status
           << " rows=" << line.rows << " bytes=" << line.bytes << " ms=" << ms
           << std::endl; // at once: somebody may follow the file
    const bool failed = !m_file;
    if (failed && !m_isFailing) {
        std::cerr << "flightserver: cannot write access log " << m_path << "; lines are lost" << std::endl;
    }
    m_isFailing = failed;
    m_file.clear();
}
