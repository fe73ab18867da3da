// SPDX-License-Identifier: MIT
// The floor for everything on the screen: a bare QWebView, with the panel's kind of window and nothing else.
// Usage: floor-browser URL       opens the page at once
//        floor-browser URL PORT  shows a small page, and opens the page when a datagram arrives
#include <QApplication>
#include <QMainWindow>
#include <QUdpSocket>
#include <QUrl>
#include <QWebView>

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    const QUrl url(arguments.value(1));
    QMainWindow window;
    window.setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    auto* const view = new QWebView;
    window.setCentralWidget(view);
    QUdpSocket socket;
    if (arguments.size() == 2) {
        view->load(url);
    } else {
        view->setHtml(QStringLiteral("<html><body><h1>0123456789</h1><p>Waiting</p></body></html>"));
        socket.bind(QHostAddress::AnyIPv4, arguments.at(2).toUShort());
        QObject::connect(&socket, &QUdpSocket::readyRead, view, [&] {
            char octet = 0;
            socket.readDatagram(&octet, 1);
            view->load(url);
        });
    }
    window.showMaximized();
    return QApplication::exec();
}
