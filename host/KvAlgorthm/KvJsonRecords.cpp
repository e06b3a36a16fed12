// SPDX-License-Identifier: MIT
#include "KvAlgorthm.h"

#include <QtCore/QJsonArray>
#include <QtCore/QLocale>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

#include <algorithm>
#include <cmath>

namespace
{
/// What a form decoder would change: its own signs, and bytes that it may take for another encoding.
bool FormChanges(QChar c)
{
    return c == QLatin1Char('%') || c == QLatin1Char('&') || c == QLatin1Char('+') || c == QLatin1Char('=') ||
           c == QLatin1Char(';') || c.unicode() > 0x7e;
}

bool IsFormSafe(const QString& text)
{
    return std::none_of(text.cbegin(), text.cend(), FormChanges);
}

/// Quotes, backslashes and control characters are left to the JSON writer, which escapes them.
QString FormSafe(const QString& text)
{
    if (IsFormSafe(text)) {
        return text;
    }
    const QByteArray utf8 = text.toUtf8();
    QString safe;
    safe.reserve(utf8.size() * 2);
    for (const char c : utf8) {
        const auto code = static_cast<uchar>(c);
        if (FormChanges(QLatin1Char(c))) {
            safe += QLatin1Char('%') + QString::number(code, 16).toUpper();
        } else {
            safe += QLatin1Char(c);
        }
    }
    return safe;
}

QJsonValue Base64Url(const QByteArray& bytes)
{
    return QLatin1String(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

constexpr qlonglong ExactInDouble = 1LL << 53; ///< readers of JSON may hold every number as a double

QJsonValue Integer(qlonglong number)
{
    if (number > ExactInDouble || number < -ExactInDouble) {
        return QString::number(number);
    }
    return number;
}

QJsonValue Real(double number)
{
    // JSON knows no infinity, and a form reads the "+" of 1e+20 as a blank.
    if (!std::isfinite(number) || std::abs(number) > static_cast<double>(ExactInDouble)) {
        return FormSafe(QString::number(number, 'g', QLocale::FloatingPointShortest));
    }
    return number;
}

/// A BLOB without bytes is a null QByteArray, as far as Qt is concerned.
bool IsNull(const QVariant& value)
{
    return value.isNull() && value.userType() != QMetaType::QByteArray;
}

QJsonValue ColumnValue(const QVariant& value)
{
    if (IsNull(value)) {
        return QJsonValue::Null;
    }
    switch (value.userType()) {
    case QMetaType::QByteArray:
        return Base64Url(value.toByteArray());
    case QMetaType::Double:
        return Real(value.toDouble());
    case QMetaType::Int:
    case QMetaType::LongLong:
        return Integer(value.toLongLong());
    default:
        return FormSafe(value.toString());
    }
}

template<class Insert>
void ForEachColumn(QSqlQuery* query, const Insert& insert)
{
    if (!query) {
        return;
    }
    const QSqlRecord row = query->record();
    for (int i = 0; i < row.count(); ++i) {
        const QString name = row.fieldName(i);
        if (name != QLatin1String("is_uploaded")) {
            insert(name, row.value(i));
        }
    }
}

/// The row of a request of its own.
QJsonObject SingleRecord(QSqlQuery* query)
{
    QJsonObject object;
    ForEachColumn(query, [&object](const QString& name, const QVariant& value) {
        object.insert(name, ColumnValue(value));
    });
    return object;
}

/// One of many rows of a request that names their mission. What says nothing is paid for a million times a
/// flight: columns without a value, and the mission again, unless the form, which takes its id as it is,
/// would change that.
QJsonObject BatchRecord(QSqlQuery* query, const QString& binaryColumn = QString())
{
    QJsonObject object;
    ForEachColumn(query, [&](const QString& name, const QVariant& value) {
        const bool said = name == QLatin1String("flight_mission_id") && IsFormSafe(value.toString());
        if (!said && !IsNull(value)) {
            object.insert(name, name == binaryColumn ? Base64Url(value.toByteArray()) : ColumnValue(value));
        }
    });
    return object;
}
} // namespace

QList<QVariant> ReadJsonArray(const QJsonValue& value)
{
    QList<QVariant> elements;
    const QJsonArray array = value.toArray();
    elements.reserve(array.size());
    for (const QJsonValue& element : array) {
        elements.append(element.toObject());
    }
    return elements;
}

QJsonObject FlightMissionComboJsonInfo(QSqlQuery* query)
{
    return SingleRecord(query);
}

QJsonObject PosDataComboJsonInfo(QSqlQuery* query)
{
    return BatchRecord(query);
}

QJsonObject UasStatusComboJsonInfo(QSqlQuery* query)
{
    return BatchRecord(query);
}

QJsonObject FlightLogComboJsonInfo(QSqlQuery* query)
{
    return BatchRecord(query, QStringLiteral("message"));
}

QJsonObject FlightVideoMissionComboJsonInfo(QSqlQuery* query)
{
    return SingleRecord(query);
}
