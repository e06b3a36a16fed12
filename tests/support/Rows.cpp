// SPDX-License-Identifier: MIT
#include "Rows.h"

#include <QtTest/QtTest>

namespace
{
QStringList cells(const QString& line)
{
    QStringList cells = line.split(u'|');
    for (QString& text : cells) {
        text = text.trimmed();
    }
    return cells;
}
} // namespace

void addRows()
{
    QFile table(QStringLiteral(":/rows/%1.txt").arg(QLatin1String(QTest::currentTestFunction())));
    if (!table.open(QIODevice::ReadOnly)) {
        qFatal("no %s", qPrintable(table.fileName()));
    }
    static QList<QByteArray> names; // Qt Test keeps pointers to them
    const QStringList columns = cells(QString::fromUtf8(table.readLine()));
    for (const QString& column : columns) {
        names.append(column.toUtf8());
        QTest::addColumn<QString>(names.constLast().constData());
    }
    while (!table.atEnd()) {
        const QStringList row = cells(QString::fromUtf8(table.readLine()));
        QTestData& data = QTest::newRow(row[0].toUtf8().constData());
        for (int i = 0; i < columns.size(); ++i) {
            data << row.value(i);
        }
    }
}

QString cell(const char* column)
{
    return *static_cast<QString*>(QTest::qData(column, qMetaTypeId<QString>()));
}
