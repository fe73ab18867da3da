// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVector>

/// One field of a frame, as the panel reads it.
struct FrameField
{
    QString name; ///< seqno, devinfo.lang ...; with the prefix "rlp.", its name in the dissector
    int offset = 0;
    int width = 0;
    QJsonValue value;
    QString meaning; ///< the value in words; may be empty
};

/// Where a frame is wrong, and what would be right.
struct FrameFinding
{
    int offset = 0;
    int width = 0;
    QString text;
};

/// One section of the walk.
struct SectionReport
{
    int offset = 0;
    quint16 type = 0;
    bool decoded = false;
};

/// The panel's verdict on one datagram.
struct FrameReport
{
    QByteArray octets;
    QHostAddress sender;
    bool isAccepted = false;
    QStringList log; ///< the panel's log lines about it
    QVector<FrameFinding> faults;
    QVector<FrameField> fields;
    QVector<SectionReport> sections;

    /// Accepted, and nothing in it was refused.
    [[nodiscard]] bool isFaultless() const { return isAccepted && faults.isEmpty(); }
};
