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
/// Quotes, backslashes and control characters are left to the JSON writer, which escapes them.
QString FormSafe(const QString& text)
{
    const auto changes = [](QChar c) {
        return c == QLatin1Char('%') || c == QLatin1Char('&') || c == QLatin1Char('+') ||
               c == QLatin1Char('=') || c == QLatin1Char(';') || c.unicode() > 0x7e;
    };
    const QByteArray utf8 = std::any_of(text.cbegin(), text.cend(), changes) ? text.toUtf8() : QByteArray();
    if (utf8.isEmpty()) {
        return text;
    }
    QString safe;
    safe.reserve(utf8.size() * 2);
    for (const char c : utf8) {
        const auto code = static_cast<uchar>(c);
        if (changes(QLatin1Char(c))) {
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

QJsonValue ColumnValue(const QVariant& value)
{
    if (value.isNull()) {
        return QJsonValue::Null;
    }
    switch (static_cast<QMetaType::Type>(value.type())) {
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

QJsonObject RowObject(QSqlQuery* query, const QString& binaryColumn = QString())
{
    QJsonObject object;
    if (!query) {
        return object;
    }
    const QSqlRecord row = query->record();
    for (int i = 0; i < row.count(); ++i) {
        const QString name = row.fieldName(i);
        if (name == QLatin1String("is_uploaded")) {
            continue;
        }
        const QVariant value = row.value(i);
        const bool binary = name == binaryColumn && !value.isNull();
        object.insert(name, binary ? Base64Url(value.toByteArray()) : ColumnValue(value));
    }
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
    return RowObject(query);
}

QJsonObject PosDataComboJsonInfo(QSqlQuery* query)
{
    return RowObject(query);
}

QJsonObject UasStatusComboJsonInfo(QSqlQuery* query)
{
    return RowObject(query);
}

QJsonObject FlightLogComboJsonInfo(QSqlQuery* query)
{
    return RowObject(query, QStringLiteral("message"));
}

QJsonObject FlightVideoMissionComboJsonInfo(QSqlQuery* query)
{
    return RowObject(query);
}
