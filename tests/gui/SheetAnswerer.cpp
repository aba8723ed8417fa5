#include "SheetAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>

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
        buttons << button->text();
        if (button->text() == answers_.constFirst())
            chosen = button;
    }
    seen_ << box->text() + " | " + buttons.join(", ");
    const QString answer = answers_.takeFirst();
    if (answer == QStringLiteral("Return"))
        QTest::keyClick(box, Qt::Key_Return);
    else if (chosen != nullptr)
        chosen->click();
    else
        box->reject();
}
