// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

#include <vector>

namespace Simulator {

/// The encoding of one field and of its text form.
enum class FieldKind
{
    Flag,    ///< one or more octets, 0 or 1; "on", "off", "true", "false", or a number
    Output,  ///< one octet; "off", "on", "slow", "fast", or a number
    Number,  ///< little-endian unsigned
    Address, ///< IPv4, first octet first
    Text,    ///< UTF-8, padded with NUL; a text as wide as the field has no NUL
};

/// One field of a fixed section; `offset` counts from the first octet of the section header.
struct Field
{
    const char* name;
    int offset;
    int width;
    FieldKind kind;
    const char* initial; ///< the simulated controller's initial value
};

/// One section kind of fixed length; `length` counts the 4 octets of the section header too.
struct SectionLayout
{
    const char* name;
    quint16 type;
    quint16 length;
    std::vector<Field> fields;
};

constexpr quint16 sectionHeaderLength = 4;
constexpr quint16 coreSectionType = 0x80;

/// The five fixed sections, in the order in which the simulator sends them. Core is not among them: it has no
/// fixed length and must be the last one in a frame.
const std::vector<SectionLayout>& sectionLayouts();

/// The layout with this name ("devinfo", "gpiostate", ...), or null.
const SectionLayout* findLayout(const QString& name);

} // namespace Simulator
