// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayMatcher>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <utility>

/// A text that no log line may show, such as a token: as it is and in the forms that it has within a URL.
class CKvSecret
{
public:
    explicit CKvSecret(QString strText) : m_strText(std::move(strText)) {}

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
            _HideEncoded(strLine, m_strText.toUtf8(),
                         [](const QString& strPart) { return strPart.toUtf8(); });
        }
        if (strLine.contains(QLatin1Char('%'))) {
            _HideEncoded(strLine, m_strText.toLatin1(),
                         [](const QString& strPart) { return strPart.toLatin1(); });
        }
    }

private:
    /// The value of a hexadecimal digit, or -1.
    static int _HexDigit(QChar ch)
    {
        return QLatin1String("0123456789abcdef").indexOf(ch, 0, Qt::CaseInsensitive);
    }

    /// The byte that "%XX" stands for at a place of a line, or -1.
    static int _EncodedByte(const QString& strLine, int nAt)
    {
        constexpr int Length = 3;
        if (strLine.at(nAt) != QLatin1Char('%') || nAt + Length > strLine.size()) {
            return -1;
        }
        const int nHigh = _HexDigit(strLine.at(nAt + 1));
        const int nLow = _HexDigit(strLine.at(nAt + 2));
        return nHigh >= 0 && nLow >= 0 ? nHigh * 16 + nLow : -1;
    }

    /// Decodes the line, and hides what stands where the secret's bytes are found then. No regular
    /// expression: those have a limit of their length, which a long token is beyond.
    template<typename Encode>
    static void _HideEncoded(QString& strLine, const QByteArray& secret, Encode encode)
    {
        QByteArray bytes;
        QVector<int> listPlace; // of each byte in the line
        for (int nAt = 0; nAt < strLine.size();) {
            const int nByte = _EncodedByte(strLine, nAt);
            const int nLength = nByte >= 0 ? 3 : strLine.at(nAt).isHighSurrogate() ? 2 : 1;
            bytes += nByte >= 0 ? QByteArray(1, static_cast<char>(nByte)) : encode(strLine.mid(nAt, nLength));
            listPlace.insert(listPlace.size(), bytes.size() - listPlace.size(), nAt);
            nAt += nLength;
        }
        listPlace.append(strLine.size());
        const QByteArrayMatcher matcher(secret);
        QString strHidden;
        int nDone = 0;
        for (int nFound = matcher.indexIn(bytes); nFound >= 0;
             nFound = matcher.indexIn(bytes, nFound + secret.size())) {
            strHidden += strLine.mid(nDone, listPlace.at(nFound) - nDone) + QLatin1String("***");
            nDone = listPlace.at(nFound + secret.size());
        }
        strLine = strHidden + strLine.mid(nDone);
    }

    QString m_strText;
};
