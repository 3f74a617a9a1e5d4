#include "shell/desktop_app.h"

#include "shell/app_model.h"

#include <QApplication>

namespace tally {

int runDesktop(int argc, char** argv) {
    QApplication app(argc, argv);
    AppModel model(nullptr);
    model.start();
    return app.exec();
}

}  // namespace tally
