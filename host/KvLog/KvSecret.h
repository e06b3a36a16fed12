// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QRegularExpression>
#include <QtCore/QString>

/// A text that no log line may show, such as a token: as it is and in the forms that it has within a URL.
class CKvSecret
{
public:
    explicit CKvSecret(const QString& strText) : m_strText(strText), m_inUrl(_InUrl(strText)) {}

    const QString& Text() const { return m_strText; }

    /// Puts "***" in its place. One of fewer than 4 characters stays: it would be found within many a word.
    void Hide(QString& strLine) const
    {
        constexpr int Shortest = 4;
        if (m_strText.size() < Shortest) {
            return;
        }
        strLine.replace(m_strText, QLatin1String("***"));
        if (strLine.contains(QLatin1Char('%'))) {
            strLine.replace(m_inUrl, QStringLiteral("***"));
        }
    }

private:
    /// Each character may stand there encoded, as Latin-1 or as UTF-8.
    static QRegularExpression _InUrl(const QString& strText)
    {
        const auto encoded = [](const QByteArray& bytes) {
            return QString::fromLatin1(bytes.toPercentEncoding({}, bytes));
        };
        QString strPattern;
        for (const QChar c : strText) {
            strPattern += QStringLiteral("(?:%1|(?i:%2|%3))")
                              .arg(QRegularExpression::escape(c), encoded(QString(c).toUtf8()),
                                   encoded(QString(c).toLatin1()));
        }
        return QRegularExpression(strPattern);
    }

    QString m_strText;
    QRegularExpression m_inUrl;
};
