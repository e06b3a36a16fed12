// SPDX-License-Identifier: MIT
#include "words/Trouble.h"

#include <algorithm>

namespace
{
/// In one pass, so that a name with a % in it stays as it is.
QString filled(const char* text, const QStringList& details)
{
    QString result;
    for (const char* at = text; *at != '\0'; ++at) {
        if (at[0] == '%' && at[1] >= '1' && at[1] <= '9') {
            result += details.value(*++at - '1');
        } else {
            result += QLatin1Char(*at);
        }
    }
    return result;
}

const TroubleText& textOf(Trouble trouble)
{
    const QVector<TroubleText>& all = allTroubles();
    return *std::find_if(all.cbegin(), all.cend(),
                         [trouble](const TroubleText& text) { return text.trouble == trouble; });
}
} // namespace

const QVector<TroubleText>& allTroubles()
{
    static const QVector<TroubleText> all{
        {Trouble::NoProject, "This folder is no project: %1", "nothing was changed in it",
         "Name the folder with your flights, or make a project: record into a new or empty folder"},
        {Trouble::ReadOnlyProject, "This project is read-only: %1", "what is recorded in it can be looked at",
         "Make the folder and its files writable, or copy it to a disk that is"},
        {Trouble::InUse, "Another program %1 this project (process %2 on %3)", "it goes on with that",
         "End the other one, or leave it to it"},
        {Trouble::DiskFull, "Disk full: %1 stopped at %2", "the first part is stored",
         "Free space, then add the log again"},
        {Trouble::NoRoom, "Disk full: %1 was not recorded", "what was recorded before is stored",
         "Free space, then add the log again"},
        {Trouble::DiskReadOnly, "The disk is read-only: %1 was not recorded",
         "what was recorded before is stored", "Mount it writable, or use another one"},
        {Trouble::NotStored, "The file takes no records: %1 stopped at %2", "the first part is stored",
         "Look at the disk's quota and at what else has the file open, then add the log again"},
        {Trouble::Stopped, "Stopped: %1 ended at %2", "the first part is stored",
         "To have all of it, add the log again"},
        {Trouble::NoLog, "Not a telemetry log: %1", "nothing was recorded",
         "Choose the .tlog file of a ground station"},
        {Trouble::Unreadable, "Mostly unreadable: %1, %2 of %3 bytes are no telemetry",
         "nothing was recorded",
         "Copy the log again from where it was made, or record what there is (--anyway)"},
        {Trouble::BadChecksums, "Damaged: %1, %2 of %3 frames have wrong checksums", "nothing was recorded",
         "Copy the log again from where it was made, or record what there is (--anyway)"},
        {Trouble::BadTimes, "Impossible times: %1 begins at %2", "nothing was recorded",
         "Is it a telemetry log, and was its clock set? To record it with these times: --anyway"},
        {Trouble::SameLog, "Recorded already: %1 is in this project as %2", "nothing was recorded again",
         "To have it twice: --anyway"},
        {Trouble::BrokeOff, "Recording broke off: %1 stopped at %2 (%3)", "the first part is stored",
         "Look at the disk or the card that the log is on, then add it again"},
        {Trouble::NotMarkable, "Accepted records cannot be marked in %1: %2", "all records are safe here",
         "Mend that, then upload again; until then nothing more of this file is sent"},
        {Trouble::NotSendable, "Some records cannot be sent: %1", "all records are safe here",
         "Mend that, then upload again"},
        {Trouble::NoNetwork, "No network", "all records are safe here",
         "They are sent when there is one again"},
        {Trouble::UnknownHost, "Unknown server: there is no host \"%1\"", "all records are safe here",
         "Look at the address, or at the network's name service"},
        {Trouble::NoConnection, "No connection to %1", "all records are safe here",
         "Is the server running, and its port right?"},
        {Trouble::NoAnswer, "No answer from %1 for %2 s", "all records are safe here",
         "The line is slow or the server busy; it is tried again"},
        {Trouble::CutLine, "The connection to %1 was cut", "all records are safe here",
         "It is tried again; look at the line if it stays"},
        {Trouble::Certificate, "The certificate of %1 is not trusted (%2)", "nothing was sent",
         "Is it the right server? Then have its certificate signed, or add its authority to the system's"},
        {Trouble::WrongAddress, "Wrong address (%2): %1", "all records are safe here",
         "Something else answers there; ask for the server's address"},
        {Trouble::TooLarge, "Too large for the server (%2): %1", "all records are safe here",
         "Have the server, or what stands before it, take larger requests"},
        {Trouble::ServerError, "Server error %2: %1", "all records are safe here",
         "It is tried again; tell who runs the server if it stays"},
        {Trouble::NoServer, "No upload server: %1 answers with something else", "all records are safe here",
         "Look at the address; in a guest network sign in with a browser first"},
        {Trouble::TokenRejected, "Token rejected (%1): %2", "all records are safe here",
         "Enter a new token; ask who runs the server for one"},
        {Trouble::RowsRefused, "The server refuses the records (%1): %2", "all records are safe here",
         "Tell who runs the server; others of the project are sent"},
        {Trouble::NoScheme, "An address begins with http:// or https://: %1", "nothing was sent",
         "Did you mean %2?"},
    };
    return all;
}

QString troubleHeadline(Trouble trouble, const QStringList& details)
{
    return filled(textOf(trouble).what, details);
}

QString troubleWords(Trouble trouble, const QStringList& details)
{
    const TroubleText& text = textOf(trouble);
    const QString words = QStringLiteral("%1, %2. %3");
    const QString todo = filled(text.todo, details);
    return words.arg(filled(text.what, details), filled(text.safe, details), todo) +
           (todo.endsWith(QLatin1Char('?')) ? QString() : QStringLiteral("."));
}

QString durationWords(qint64 seconds)
{
    constexpr int Minute = 60;
    constexpr int Hour = 3600;
    const auto two = [](qint64 number) { return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0')); };
    if (seconds < Minute) {
        return QStringLiteral("%1 s").arg(seconds);
    }
    const QString end = QLatin1Char(':') + two(seconds % Minute);
    return seconds < Hour
               ? QString::number(seconds / Minute) + end
               : QString::number(seconds / Hour) + QLatin1Char(':') + two(seconds / Minute % Minute) + end;
}
