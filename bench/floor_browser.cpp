// SPDX-License-Identifier: MIT
// The floor for everything on the screen: a bare QWebView, with the panel's kind of window and nothing else.
// Usage: floor-browser URL              opens the page at once
//        floor-browser --cold PORT URL  opens it when a datagram arrives
//        floor-browser --warm PORT URL  the same, but has shown a small page before
#include <QApplication>
#include <QMainWindow>
#include <QUdpSocket>
#include <QUrl>
#include <QWebView>

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    const QUrl url(arguments.constLast());
    QMainWindow window;
    window.setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    auto* const view = new QWebView;
    window.setCentralWidget(view);
    QUdpSocket socket;
    if (arguments.size() == 2) {
        view->load(url);
    } else {
        if (arguments.at(1) == QLatin1String("--warm")) {
            view->setHtml(QStringLiteral("<html><body><h1>0123456789</h1><p>Waiting</p></body></html>"));
        }
        socket.bind(QHostAddress::AnyIPv4, static_cast<quint16>(arguments.at(2).toInt()));
        QObject::connect(&socket, &QUdpSocket::readyRead, view, [&] {
            char octet = 0;
            socket.readDatagram(&octet, 1);
            view->load(url);
        });
    }
    window.showMaximized();
    return QApplication::exec();
}
