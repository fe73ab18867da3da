// SPDX-License-Identifier: MIT
#include "standins.h"

#include <QtDebug>

#include "mainwindow.h"
#include "scriptrunner.h"
#include "settings.h"

namespace standins {

QVector<Call> scripts;
QVector<Call> windowCalls;
bool scriptsThere = true;

} // namespace standins

namespace Ui {
/// The form of a window that is never shown.
class MainWindow
{
};
} // namespace Ui

namespace Varnel {

namespace {

void recordWindow(const char* name, const QStringList& arguments)
{
    standins::windowCalls.append({QLatin1String(name), arguments});
}

} // namespace

QString scriptPath(const QString& name)
{
    return Settings::getFilesScriptDir() + QLatin1Char('/') + name;
}

bool isRunnableScript(const QString& /*path*/)
{
    return standins::scriptsThere;
}

ScriptResult runScript(const QString& path, const QStringList& arguments, std::chrono::milliseconds /*limit*/)
{
    standins::scripts.append({path.mid(path.lastIndexOf(QLatin1Char('/')) + 1), arguments});
    return standins::scriptsThere ? ScriptResult::Finished : ScriptResult::Missing;
}

ScriptResult runScriptOrLog(const QString& path, const QStringList& arguments)
{
    const ScriptResult result = runScript(path, arguments);
    if (result == ScriptResult::Missing) {
        qDebug() << "Script '" << path << "' not found, do nothing";
    }
    return result;
}

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , language(QStringLiteral("default"))
{
}

MainWindow::~MainWindow() = default;

void MainWindow::openUrl(const QString& url)
{
    recordWindow("openUrl", {url});
}

void MainWindow::openUrlForce(const QString& url, bool force)
{
    recordWindow("openUrlForce", {url, QString::number(int(force))});
}

void MainWindow::setDefaultUrl(const QString& url)
{
    recordWindow("setDefaultUrl", {url});
}

void MainWindow::reloadUrl()
{
    recordWindow("reloadUrl", {});
}

void MainWindow::displayError(QString language)
{
    recordWindow("displayError", {language});
}

void MainWindow::setLanguage(QString lang)
{
    recordWindow("setLanguage", {lang});
    language = lang;
}

void MainWindow::keyPressEvent(QKeyEvent* /*event*/) {}
void MainWindow::startDownload() {}
void MainWindow::webViewLoadStarted() {}
void MainWindow::webViewLoadFinished() {}
void MainWindow::webViewloadProgress(int /*progress*/) {}
void MainWindow::firstRequestStatus(bool /*error*/) {}
void MainWindow::watchFrontInterface() {}

} // namespace Varnel
