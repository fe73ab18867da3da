// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QRect>

#include "scene.h"
#include "simulator.h"
#include "virtualscreen.h"

/// The panel on a screen, with a USB drive plugged in, a page of one colour at 192.168.7.2 and the simulated
/// controller's files at 192.168.7.3, which sends no frames.
class TransferScene : public Scene
{
public:
    /// The page's colour; nothing else on the screen has it.
    static constexpr QRgb pageColor = qRgb(0, 0xc0, 0);
    /// The place of a dialog: over the middle of the panel's window, less the 10 and 40 pixels that the
    /// toolkit keeps for a frame when no window has one yet.
    static constexpr QRect chooserPlace{134, 36, 512, 328};
    static constexpr QRect messagePlace{190, 155, 400, 91};
    static constexpr QRect progressPlace{186, 143, 408, 114};
    /// The middle of the chooser's buttons.
    static constexpr QPoint okButton{476, 342};
    static constexpr QPoint cancelButton{578, 342};

    /// An empty drive, its marker in place; nothing runs yet.
    explicit TransferScene(VirtualScreen& virtualScreen);

    /// Settings under which neither a lost link nor a dark screen gets in the way.
    static SettingsFile quietSettings();
    /// Starts the panel and the file server and opens the page, whose body holds `html`.
    [[nodiscard]] bool open(const QByteArray& html, const SettingsFile& settings = quietSettings());
    /// Lets a touch of the page's link to "/go" lead to `path` of the file server.
    void leadTo(const QString& path);
    /// A link to "/go" that covers the page.
    static QByteArray linkPage();

    /// Plugs the drive in, or pulls it: only the marker is looked at.
    static void plug();
    static void pull();
    static QString drive(const QString& name) { return QStringLiteral("/usbmnt/") + name; }
    static QStringList driveEntries();
    static QByteArray readDrive(const QString& name);
    static bool writeDrive(const QString& name, const QByteArray& octets);

    /// The smallest rectangle with everything that does not have the page's colour; empty when there is only
    /// the page.
    QRect foreground() const;
    /// Waits until exactly this place is covered. On failure says what is, and keeps a picture.
    [[nodiscard]] bool awaitForeground(const QRect& place) const;
    /// Waits until the chooser is there and at rest: no finger is quicker than that.
    [[nodiscard]] bool awaitChooser() const { return awaitForeground(chooserPlace) && screen.awaitStill(); }
    /// Waits until nothing covers the page.
    [[nodiscard]] bool awaitPage() const { return awaitForeground({}); }
    /// Keeps the place's picture as NAME.png where the variable VARNEL_TEST_SCREENSHOTS names a directory.
    void keepPicture(const QString& name) const;
    /// The remount script's runs: "rw", "ro", in order.
    QStringList remounts() const;

    VirtualScreen& screen;
    Simulator files;
};

/// The body of `size` octets that the simulator makes for a download.
QByteArray generatedBody(int size);
