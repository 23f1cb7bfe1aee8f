// A host with a Qt window.

#include <QApplication>
#include <QWidget>

#include "tests/system/hosts/HostReport.h"

static void EndLoop() {
    QApplication::quit();
}

int main(int count, char** arguments) {
    QApplication application(count, arguments);
    QWidget window;
    window.show();
    if (Begin() != 0) return 1;
    const int status = QApplication::exec();
    CloseMatching();
    return status;
}
