#include "views/MessageBox.h"

#include "app/core/Automation.h"
#include "app/core/Log.h"

#include <QDialog>
#include <QRegularExpression>

namespace MessageBox {
namespace {

QString Plain(QString Text) {
    Text.replace(QRegularExpression(QStringLiteral("<br\\s*/?>"), QRegularExpression::CaseInsensitiveOption),
                 QStringLiteral(" "));
    Text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return Text.simplified();
}

QString ButtonName(QMessageBox::StandardButton Button) {
    switch (Button) {
    case QMessageBox::Ok:
        return QStringLiteral("OK");
    case QMessageBox::Yes:
        return QStringLiteral("Yes");
    case QMessageBox::No:
        return QStringLiteral("No");
    case QMessageBox::Cancel:
        return QStringLiteral("Cancel");
    case QMessageBox::Save:
        return QStringLiteral("Save");
    case QMessageBox::Discard:
        return QStringLiteral("Discard");
    case QMessageBox::Abort:
        return QStringLiteral("Abort");
    case QMessageBox::Retry:
        return QStringLiteral("Retry");
    case QMessageBox::Ignore:
        return QStringLiteral("Ignore");
    default:
        return QString::number(Button);
    }
}

void LogUnattended(const QString& Title, const QString& Text, const QString& Answer) {
    PrintConsole(QStringLiteral("[%1] %2 -> %3 (unattended: default answer)").arg(Title, Plain(Text), Answer),
                 COLOR_LOGGING_USER);
}

} // namespace

QMessageBox::StandardButton Ask(QWidget* Parent, const QString& Title, const QString& Text,
                                QMessageBox::StandardButtons Buttons, QMessageBox::StandardButton Default) {
    if (Automation::IsActive()) {
        LogUnattended(Title, Text, ButtonName(Default));
        return Default;
    }
    QMessageBox Box(QMessageBox::Question, Title, Text, Buttons, Parent);
    Box.setDefaultButton(Default);
    return static_cast<QMessageBox::StandardButton>(Box.exec());
}

void Inform(QWidget* Parent, QMessageBox::Icon Icon, const QString& Title, const QString& Text) {
    if (Automation::IsActive()) {
        LogUnattended(Title, Text, QStringLiteral("OK"));
        return;
    }
    QMessageBox Box(Icon, Title, Text, QMessageBox::Ok, Parent);
    Box.exec();
}

int Exec(QDialog* Dialog, int DefaultResult) {
    if (Automation::IsActive()) {
        PrintConsole(QStringLiteral("[%1] dialog not shown while unattended").arg(Dialog->windowTitle()),
                     COLOR_LOGGING_USER);
        return DefaultResult;
    }
    return Dialog->exec();
}

} // namespace MessageBox
