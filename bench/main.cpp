// SPDX-License-Identifier: MIT
#include "flightdesk/words/Latin1.h"
#include "KvData.h"
#include "MissionFile.h"
#include "Suites.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <functional>
#include <iostream>

namespace
{
struct Suite {
    const char* name;
    std::function<void(Report& report)> run;
    bool always = true; // also where none is named
};

void prepareHost()
{
    QLoggingCategory::setFilterRules("default.warning=false"_l1); // Qt remarks on every post
    CKvControl::GetInstance(false, EPlaneType::Multirotor)->SetNetWorkConnected(true);
}

bool runSuites(const QStringList& arguments)
{
    const QStringList logs = arguments.filter(QRegularExpression("[.]tlog$"_l1));
    const QSet<QString> wanted =
        QSet<QString>(arguments.cbegin(), arguments.cend()) - QSet<QString>(logs.cbegin(), logs.cend());
    const Suite suites[] = {
        {"store", benchStore},          {"scan", benchScan},
        {"drain", benchDrain},          {"requests", benchRequests},
        {"memory", benchMemory},        {"line", [&logs](Report& report) { benchLine(report, logs); }},
        {"export", benchExport, false}, {"server", benchServer, false},
        {"fleet", benchFleet, false},
    };
    Report report;
    bool any = false;
    for (const Suite& suite : suites) {
        if (wanted.isEmpty() ? !suite.always : !wanted.contains(QLatin1String(suite.name))) {
            continue;
        }
        any = true;
        std::cerr << suite.name << std::endl;
        suite.run(report);
    }
    if (any) {
        report.print();
    }
    return any;
}
} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    try {
        prepareHost();
        if (arguments.value(0) == "--child"_l1) {
            measureInChild(arguments.mid(1));
            return 0;
        }
        if (runSuites(arguments)) {
            return 0;
        }
        std::cerr << "usage: kvbench [store] [scan] [drain] [requests] [memory] [line] [export] [server] "
                     "[fleet] "
                     "[LOG.tlog...]"
                  << std::endl;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "kvbench: " << error.what() << std::endl;
        return 1;
    }
}
