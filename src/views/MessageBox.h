#pragma once

#include <QMessageBox>
#include <QString>

class QDialog;

/// Message boxes and modal dialogs that never wait for a person while the program runs unattended:
/// then each takes its default answer, and question and answer are logged to the Console. GUI thread.
namespace MessageBox {

/// Asks a question; the default answer stands when unattended.
QMessageBox::StandardButton Ask(QWidget* Parent, const QString& Title, const QString& Text,
                                QMessageBox::StandardButtons Buttons, QMessageBox::StandardButton Default);
/// Shows an information, warning or error with OK.
void Inform(QWidget* Parent, QMessageBox::Icon Icon, const QString& Title, const QString& Text);
/// Runs a modal dialog; unattended it is not shown and the result is DefaultResult.
int Exec(QDialog* Dialog, int DefaultResult);

} // namespace MessageBox
