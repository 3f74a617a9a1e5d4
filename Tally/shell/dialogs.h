// The questions the desktop app asks through standard dialogs, and the files it hands to
// the desktop, behind one object so tests can answer them. The default implementation
// shows the real dialogs (modal, on the GUI thread) and asks the desktop to open files;
// a test subclass answers from a script. Owned by whoever builds the window; must outlive
// every view it is given to. GUI thread only.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QWidget;

namespace tally {

class Dialogs {
  public:
    struct SaveChoice {
        QString path;
        QString filter;  // the name filter the user picked, one of those offered
    };

    virtual ~Dialogs() = default;

    // A save dialog with `suggestedName` prefilled and the given name filters
    // ("CSV (*.csv)"); nothing when the user cancels.
    virtual std::optional<SaveChoice> askSaveFile(QWidget* parent, const QString& title,
                                                  const QString& suggestedName,
                                                  const QStringList& filters);
    // A warning the user must acknowledge.
    virtual void showError(QWidget* parent, const QString& title, const QString& text);
    // Opens a file in the user's editor (the desktop's handler for its type); false when
    // the desktop has none.
    virtual bool openFile(const QString& path);
};

}  // namespace tally
