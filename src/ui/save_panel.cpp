#include "ui/save_panel.h"

#include <QFile>
#include <QFileDialog>
#include <QPointer>

#include <cstdlib>

#include "app/speech.h"

namespace murmela::ui {
namespace {

QString withWavEnding(const QString& path) {
    return path.endsWith(QStringLiteral(".wav"), Qt::CaseInsensitive)
               ? path
               : path + QStringLiteral(".wav");
}

}  // namespace

QFileDialog* presentSavePanel(Speech& speech, QWidget* window, const UiTables& tables) {
    if (speech.phase() != Phase::ready || !speech.canSpeak()) {
        return nullptr;
    }
    auto* dialog = new QFileDialog(window);
    dialog->setObjectName(QStringLiteral("savePanel"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(tables.text(QStringLiteral("murmela.saveFilter")));
    dialog->setDefaultSuffix(QStringLiteral("wav"));
    if (const char* directory = std::getenv("MURMELA_SAVE_DIR")) {
        dialog->setDirectory(QString::fromLocal8Bit(directory));
    }
    dialog->selectFile(tables.text(QStringLiteral("murmela.saveName")));

    QPointer<Speech> model(&speech);
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog, [model](const QString& file) {
        if (model && !file.isEmpty()) {
            model->save(QFile::encodeName(withWavEnding(file)).toStdString());
        }
    });
    if (window != nullptr) {
        dialog->setWindowModality(Qt::WindowModal);
        dialog->open();
        return dialog;
    }
    dialog->exec();
    return nullptr;
}

}  // namespace murmela::ui
