// SPDX-License-Identifier: MIT
#include "enginewarmer.h"

#include <chrono>
#include <tuple>

#include <QImage>
#include <QPainter>
#include <QSslSocket>
#include <QTimer>
#include <QWebFrame>
#include <QWebPage>

namespace Varnel {

namespace {

using namespace std::chrono_literals;

/// Late enough not to delay the page of a controller that is already up, early enough for one that boots with
/// the panel.
constexpr auto delay = 700ms;

/// The usual elements of controllers' pages, without resources to load.
const QString samplePage = QStringLiteral(
    "<html><head><style>body{font:14px sans-serif;background:#eee} b{color:#123;border-radius:3px} "
    "input{width:9em}</style></head><body><h1>0123456789</h1><p>The quick brown fox <b>jumps</b> <i>over</i> "
    "<code>it</code></p><table border='1'><tr><td>1</td><td>2</td></tr></table>"
    "<form><input type='text' value='x'><input type='checkbox'><input type='button' value='OK'>"
    "<select><option>1</option></select></form><script>var t=JSON.stringify({a:[1,2].map(function(n)"
    "{return n+1;})}).replace(/[0-9]/g,'x');document.body.appendChild(document.createTextNode(t));</script>"
    "</body></html>");

} // namespace

EngineWarmer::EngineWarmer(QObject* parent)
    : QObject(parent)
{
    QTimer::singleShot(delay, this, &EngineWarmer::warmUp);
}

void EngineWarmer::warmUp()
{
    // The engine calls this at its first request. It loads the TLS library, which takes longer than the rest.
    std::ignore = QSslSocket::supportsSsl();

    QWebPage page;
    page.setViewportSize(QSize(800, 480));
    page.mainFrame()->setHtml(samplePage);
    QImage image(page.viewportSize(), QImage::Format_RGB32);
    QPainter painter(&image);
    page.mainFrame()->render(&painter);
}

} // namespace Varnel
