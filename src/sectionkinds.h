// SPDX-License-Identifier: MIT
#pragma once

#include <QList>

#include "rlpdecoder.h"

namespace Varnel {

/// Uses the decoded sections of a frame, with one operation for each kind.
class SectionUser
{
public:
    SectionUser() = default;
    Q_DISABLE_COPY_MOVE(SectionUser)
    virtual ~SectionUser() = default;

    virtual void useDevInfo(const RlpFrame& frame) = 0;
    virtual void useGpioState(const RlpFrame& frame) = 0;
    virtual void useSnmpCfg(const RlpFrame& frame) = 0;
    virtual void useNetCfg(const RlpFrame& frame) = 0;
    virtual void useCore(const RlpFrame& frame) = 0;
    virtual void useModbusCfg(const RlpFrame& frame) = 0;
};

/// Everything that differs from one kind of section to the next.
struct SectionKind
{
    SectionType type;
    quint16 size;              ///< octets of the section, header included; 0 where the frame's end decides
    const char* mismatchWords; ///< start of the log line for a section of another size
    bool (RlpDecoder::*decode)(quint16, quint16, QByteArray*, void*, int*);
    void* (*record)(RlpFrame*, QList<core_tmp>*); ///< what the decoder fills
    bool RlpFrame::*decoded;                      ///< whether the decoder succeeded
    void (SectionUser::*use)(const RlpFrame&);
};

/// The kind with this type on the wire; null for a type that is not known.
[[nodiscard]] const SectionKind* findSectionKind(quint16 type);

/// Lets `user` use the sections of `frame` that were decoded, always in the same order of kinds.
void useSections(const RlpFrame& frame, SectionUser* user);

} // namespace Varnel
