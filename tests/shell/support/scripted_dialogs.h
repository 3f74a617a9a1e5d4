// Dialogs answered by the test: the save dialog returns `saveAnswer`, and errors and
// opened files are recorded instead of shown.
#pragma once

#include "shell/dialogs.h"

#include <QStringList>

namespace tally::testing {

class ScriptedDialogs : public Dialogs {
  public:
    std::optional<SaveChoice> saveAnswer;
    QString suggestedName;
    QStringList errors;
    QStringList opened;

    std::optional<SaveChoice> askSaveFile(QWidget*, const QString&, const QString& suggested,
                                          const QStringList&) override {
        suggestedName = suggested;
        return saveAnswer;
    }
    void showError(QWidget*, const QString&, const QString& text) override { errors << text; }
    bool openFile(const QString& path) override {
        opened << path;
        return true;
    }
};

}  // namespace tally::testing
