// The least that a tray program in Qt is: an icon and a menu, which is shown.

#include <QApplication>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int count, char **values) {
    const QApplication application(count, values);
    QPixmap square(22, 22);
    square.fill(Qt::darkGray);
    QMenu menu;
    menu.addAction("Quit", &QCoreApplication::quit);
    QSystemTrayIcon icon{QIcon(square)};
    icon.setContextMenu(&menu);
    icon.show();
    menu.popup({});
    return QApplication::exec();
}
