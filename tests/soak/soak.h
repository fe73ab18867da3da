// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

#include <QElapsedTimer>
#include <QTimer>

#include "record.h"
#include "traffic.h"
#include "transferscene.h"

/// A panel that lives through months in hours: cycle after cycle of everything that happens to one, each
/// thing checked, with a sample of what the kernel tells of the process every few seconds.
class Soak : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Soak)

public:
    /// `directory` takes the record and the pictures of failures.
    Soak(const QString& directory, VirtualScreen& screen);

    /// Puts a command in front of the panel, which it must become itself: "env" with variables, for example.
    void setLauncher(const QStringList& command) { scene.panel.setLauncher(command); }
    /// Runs whole cycles until `duration` is over, at least one, and ends the panel. True without any
    /// failure.
    [[nodiscard]] bool run(std::chrono::milliseconds duration);

private:
    struct Step
    {
        const char* name;
        bool (Soak::*act)();
    };
    static const std::vector<Step>& steps();

    bool start();
    bool cycle();
    void recover();
    void fail(const QString& what);
    void sample();

    bool findController();
    bool checkOutputs();
    bool touchAside();
    bool download();
    bool changeLanguages();
    bool reloadPage();
    bool plugServiceLink();
    bool darkenAndWake();
    bool refusePage();
    bool rest();
    bool loseController();

    void servePage();
    bool tellPage(const QByteArray& word);
    bool awaitNoPage();
    bool awaitOutputs(const Outputs& outputs);
    void touch(QPoint point);
    bool awaitTrue(const std::function<bool()>& condition) const;
    LogReader& log() { return scene.panel.log(); }

    QString directory;
    VirtualScreen& screen;
    TransferScene scene;
    Traffic traffic;
    Record record;
    Counts counts;
    ProcessFigures atRest;
    QTimer pace;
    QString now;
};
