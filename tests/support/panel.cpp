// SPDX-License-Identifier: MIT
#include "panel.h"

Panel::Panel(QObject* parent)
    : Program(QStringLiteral("varnel-browser"), parent)
{
    setEnvironment(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
}

void Panel::setDisplay(const QString& name)
{
    setEnvironment(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    setEnvironment(QStringLiteral("DISPLAY"), name);
}

bool Panel::startAndBind(const QStringList& arguments)
{
    return start(arguments) &&
           log().await({QStringLiteral("UDP bound"), QStringLiteral("All LEDs on, Buzzer off")});
}
