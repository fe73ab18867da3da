// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QImage>
#include <QRect>

#include "drive.h"
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
    /// The middle of the first, second, ... row of the chooser's list.
    static constexpr QPoint row(int index) { return {284, 120 + index * 45}; }

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
    QStringList remounts() const { return scripts.argumentsOf("usbremount.sh"_s); }

    VirtualScreen& screen;
    Drive drive;
    Simulator files;
};

/// The body of `size` octets that the simulator makes for a download.
QByteArray generatedBody(int size);

/// Tests with a screen for all functions and a transfer scene for each. Behind each, a panel that still runs
/// must work, and end in order.
class TransferTest : public QObject
{
    Q_OBJECT

protected slots:
    void initTestCase();
    void init();
    void cleanup();

protected:
    LogReader& log() { return scene->panel.log(); }

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};
