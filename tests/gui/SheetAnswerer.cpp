#include "SheetAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>

namespace {

// What the user reads on a button: "&&" shows as "&", a lone "&" marks the next letter.
QString shown(const QString& text) {
    QString plain;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'&' && i + 1 < text.size())
            ++i;
        plain += text[i];
    }
    return plain;
}

}  // namespace

SheetAnswerer::SheetAnswerer() {
    timer_.setInterval(10);
    connect(&timer_, &QTimer::timeout, this, &SheetAnswerer::poll);
    timer_.start();
}

void SheetAnswerer::poll() {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || !box->isVisible() || answers_.isEmpty())
        return;
    QStringList buttons;
    QAbstractButton* chosen = nullptr;
    for (QAbstractButton* button : box->buttons()) {
        buttons << shown(button->text());
        if (buttons.constLast() == answers_.constFirst())
            chosen = button;
    }
    seen_ << box->text() + " | " + buttons.join(", ");
    const QString answer = answers_.takeFirst();
    if (answer == "Return")
        QTest::keyClick(box, Qt::Key_Return);
    else if (chosen != nullptr)
        chosen->click();
    else
        box->reject();
}
