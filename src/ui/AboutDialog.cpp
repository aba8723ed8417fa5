#include "AboutDialog.h"

#include <archive.h>
#include <openssl/opensslv.h>

#include <QDialogButtonBox>
#include <QIcon>
#include <QLabel>
#include <QVBoxLayout>
#include <pugixml.hpp>

QString AboutDialog::text() {
    const QString libraries =
        QStringLiteral(
            "<tr><td>Qt %1</td><td>LGPL 3</td></tr>"
            "<tr><td>OpenSSL %2</td><td>Apache 2.0</td></tr>"
            "<tr><td>libarchive %3</td><td>BSD 2-clause</td></tr>"
            "<tr><td>pugixml %4.%5</td><td>MIT</td></tr>"
            "<tr><td>libmount, libblkid (util-linux)</td><td>LGPL 2.1</td></tr>"
            "<tr><td>xxHash</td><td>BSD 2-clause</td></tr>"
            "<tr><td>CLI11</td><td>BSD 3-clause</td></tr>")
            .arg(QString::fromLatin1(qVersion()),
                 QStringLiteral(OPENSSL_VERSION_TEXT).section(u' ', 1, 1),
                 QString::fromLatin1(archive_version_details()).section(u' ', 1, 1))
            .arg(PUGIXML_VERSION / 1000)
            .arg(PUGIXML_VERSION % 1000 / 10);
    return QStringLiteral(
               "<h2>Cardsweep %1</h2>"
               "<p>Offloads camera cards to every destination in one read, and proves "
               "each copy.</p><p>Built on:</p><table cellspacing=\"4\">%2</table>")
        .arg(QStringLiteral(CARDSWEEP_VERSION), libraries);
}

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent) {
    setWindowTitle(QStringLiteral("About Cardsweep"));
    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon::fromTheme(QStringLiteral("cardsweep")).pixmap(64, 64));
    auto* label = new QLabel(text(), this);
    label->setTextFormat(Qt::RichText);
    label->setWordWrap(true);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    layout->addWidget(label);
    layout->addWidget(buttons);
}
