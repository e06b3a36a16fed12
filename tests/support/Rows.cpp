// SPDX-License-Identifier: MIT
#include "Rows.h"

#include <QtTest/QtTest>

void addRows()
{
    QFile table(QString(":/rows/%1.txt").arg(QTest::currentTestFunction()));
    if (!table.open(QIODevice::ReadOnly)) {
        qFatal("no %s", qPrintable(table.fileName()));
    }
    static const QRegularExpression bar(R"(\s*(?<=\s)\|(?=\s|$)\s*)");
    QStringList lines = QString::fromUtf8(table.readAll()).trimmed().split('\n');
    const QStringList columns = lines.takeFirst().split(bar);
    static QList<QByteArray> names; // Qt Test keeps pointers to them
    for (const QString& column : columns) {
        names.append(column.toUtf8());
        QTest::addColumn<QString>(names.constLast().constData());
    }
    for (const QString& line : qAsConst(lines)) {
        const QStringList cells = line.split(bar);
        if (cells.size() != columns.size()) {
            qFatal("not %d cells: %s", columns.size(), qPrintable(line));
        }
        QTestData& row = QTest::newRow(cells[0].toUtf8());
        for (const QString& text : cells) {
            row << text;
        }
    }
}

QString cell(const char* column)
{
    return *static_cast<QString*>(QTest::qData(column, qMetaTypeId<QString>()));
}
