// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include "framereport.h"
#include "rlpdecoder.h"

/// The panel from the view of a controller's vendor: decodes frame after frame with the panel's own decoder,
/// keeps the same state between them (sequence number, sender, supervision of the link), and reports what the
/// panel does with each.
class FrameChecker : private Varnel::RlpDecoder
{
public:
    /// The link counts as lost after `timeoutSeconds` without an accepted frame.
    explicit FrameChecker(int timeoutSeconds);

    /// Advances the panel's clock to `timeUs`. Returns the panel's log line when the link has been lost
    /// meanwhile.
    [[nodiscard]] std::optional<QString> advance(qint64 timeUs);

    /// Hands one datagram to the panel, at the time of the last advance().
    [[nodiscard]] FrameReport check(const QByteArray& octets, const QHostAddress& sender);

private:
    void sectionWalked(const Varnel::WalkedSection& section, const Varnel::RlpFrame& frame) override;
    [[nodiscard]] FrameFinding frameFault() const;
    void addSectionFaults(const Varnel::WalkedSection& section, const QStringList& said);

    const qint64 timeoutUs;
    qint64 nowUs = 0;
    qint64 acceptedUs = 0;
    FrameReport report; ///< of the frame in hand
    int budget = 0;     ///< octets that the walk has left for sections
    int position = 0;   ///< of the next section
    int attributed = 0; ///< log lines of the sections walked so far
    QStringList lines;  ///< log lines of the frame in hand
};
