#include "shell/dialogs.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QUrl>

namespace tally {

std::optional<Dialogs::SaveChoice> Dialogs::askSaveFile(QWidget* parent, const QString& title,
                                                        const QString& suggestedName,
                                                        const QStringList& filters) {
    QString filter = filters.value(0);
    const QString path =
        QFileDialog::getSaveFileName(parent, title, QDir::home().filePath(suggestedName),
                                     filters.join(QStringLiteral(";;")), &filter);
    if (path.isEmpty()) return std::nullopt;
    return SaveChoice{path, filter};
}

void Dialogs::showError(QWidget* parent, const QString& title, const QString& text) {
    QMessageBox::warning(parent, title, text);
}

bool Dialogs::openFile(const QString& path) {
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

}  // namespace tally
