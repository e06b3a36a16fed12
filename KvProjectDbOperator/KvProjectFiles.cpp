// SPDX-License-Identifier: MIT
#include "KvProjectFiles.h"

#include "KvData.h"
#include "KvData/KvWarnings.h"

#include <QtCore/QDir>

std::optional<QStringList> ProjectMissionFiles()
{
    const QString strProject =
        CKvControl::GetInstance(false, static_cast<EPlaneType>(0))->GetProjectDirPath();
    const QDir project(strProject);
    if (strProject.isEmpty() || !project.exists()) { // an empty path is the working directory to QDir
        WarnOnce(
            KvHost(), QStringLiteral("no project folder \"%1\"").arg(strProject),
            QStringLiteral("nothing will be written or uploaded; an operator that is constructed without it "
                           "stays so"));
        return std::nullopt;
    }
    WellAgain(QStringLiteral("no project folder \"%1\"").arg(strProject));
    QStringList listFile;
    for (const QString& strFolder : project.entryList(QDir::AllDirs | QDir::NoDotAndDotDot, QDir::Unsorted)) {
        const QDir folder(project.absoluteFilePath(strFolder));
        for (const QString& strFile :
             folder.entryList({QStringLiteral("*.kv")}, QDir::Files, QDir::Unsorted)) {
            listFile.append(folder.absoluteFilePath(strFile));
        }
    }
    if (listFile.isEmpty() && !project.entryList({QStringLiteral("*.kv")}, QDir::Files).isEmpty()) {
        WarnOnce(
            KvHost(), strProject,
            QStringLiteral("its mission files are not found here; each belongs in a folder one level below"));
    }
    return listFile;
}
