// Analytics only with consent: the questions of the first launches, nothing kept or sent on
// a refusal, and the upload a local server receives, byte for byte, at most once a day.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include "FakeClock.h"
#include "PropertyList.h"
#include "QVQC.h"
#include "SettingsKeys.h"
#include "SettingsStore.h"
#include "WaitUntil.h"

namespace {

// An HTTP server on 127.0.0.1 that keeps each whole request and answers 200.
class FormReceiver {
  public:
    FormReceiver() {
        server_.listen(QHostAddress::LocalHost);
        QObject::connect(&server_, &QTcpServer::newConnection, [this] {
            QTcpSocket* socket = server_.nextPendingConnection();
            auto buffer = std::make_shared<QByteArray>();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
                *buffer += socket->readAll();
                const qsizetype headerEnd = buffer->indexOf("\r\n\r\n");
                if (headerEnd < 0)
                    return;
                const QRegularExpression length("Content-Length: (\\d+)",
                                                QRegularExpression::CaseInsensitiveOption);
                const auto match = length.match(QString::fromLatin1(buffer->left(headerEnd)));
                if (!match.hasMatch() ||
                    buffer->size() < headerEnd + 4 + match.captured(1).toLongLong())
                    return;
                requests.push_back(*buffer);
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                socket->disconnectFromHost();
            });
        });
    }
    QString address() const {
        return QStringLiteral("http://127.0.0.1:%1/appdata/qc/qc.php").arg(server_.serverPort());
    }
    std::vector<QByteArray> requests;

  private:
    QTcpServer server_;
};

class QVQCTest : public testing::Test {
  protected:
    QVQCTest() : settings_(work_.filePath("settings.plist")) {
        settings_.set(SettingsKey::analyticsEndpoint, receiver_.address());
    }
    // One launch of the program: the collector made, then its start.
    std::unique_ptr<QVQC> launch(int answer = 0) {
        auto qc = std::make_unique<QVQC>(
            settings_,
            QVQC::Places{work_.filePath("com.quorvant.qc.plist"),
                         work_.filePath("QC/com.quorvant.Cardsweep"), "com.quorvant.Cardsweep",
                         "0.1.0"},
            clock_, [this] { return os_; },
            [this, answer](const QString& title, const QStringList& buttons) {
                asked_ << title + " | " + buttons.join(", ");
                return answer;
            });
        qc->setInfoPageOpener([this](const QString& page) { opened_ << page; });
        qc->loadQC();
        return qc;
    }
    PropertyList consent() const {
        return PropertyList::readFile(work_.filePath("com.quorvant.qc.plist"));
    }

    QTemporaryDir work_;
    SettingsStore settings_;
    FormReceiver receiver_;
    std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
    QString os_ = "6.1.0";
    QStringList asked_;
    QStringList opened_;
};

}  // namespace

TEST_F(QVQCTest, NothingIsAskedFirstAndNothingKeptOrSentWithoutConsent) {
    settings_.set(SettingsKey::analyticsInfoPage, "https://example.invalid/qc");
    launch();
    EXPECT_TRUE(asked_.isEmpty()) << "never on the first launch";
    launch(0);  // "More Info"
    EXPECT_EQ(asked_, QStringList{"Help improve Quorvant software by submitting analytics and "
                                  "usage data | Allow, More Info, Don't Allow"});
    EXPECT_EQ(opened_, QStringList{"https://example.invalid/qc"});
    EXPECT_TRUE(consent()["logQC"].isAbsent()) << "nothing stored";
    launch(-1);  // asked again, "Don't Allow"
    EXPECT_EQ(asked_.size(), 2);
    EXPECT_EQ(consent()["logQC"].toBool(), false);
    for (int i = 0; i < 3; ++i)
        launch(1);
    EXPECT_EQ(asked_.size(), 2) << "answered once for all";
    EXPECT_FALSE(QFileInfo::exists(work_.filePath("QC/com.quorvant.Cardsweep")));
    QCoreApplication::processEvents();
    EXPECT_TRUE(receiver_.requests.empty());
}

TEST_F(QVQCTest, TheUploadIsTheSpecifiedFormAndComesAtMostOnceADay) {
    launch(1);
    launch(1);  // second launch: allowed; a launch and the system's version are kept
    clock_->advance(std::chrono::seconds(30));
    launch(1);  // within the minute: no second launch event
    EXPECT_TRUE(receiver_.requests.empty()) << "not before the fourth launch";
    clock_->advance(std::chrono::seconds(60));
    auto fourth = launch(1);
    ASSERT_TRUE(waitUntil([&] { return receiver_.requests.size() == 1; }));
    EXPECT_TRUE(fourth->cache().empty()) << "sent events are not kept";

    const QByteArray request = receiver_.requests.front();
    const QByteArray head = request.left(request.indexOf("\r\n\r\n"));
    const QByteArray body = request.mid(request.indexOf("\r\n\r\n") + 4);
    EXPECT_TRUE(head.startsWith("POST /appdata/qc/qc.php HTTP/1.1\r\n")) << head.toStdString();
    const QRegularExpression type("Content-Type: multipart/form-data; boundary=([0-9A-F-]{36})\r\n",
                                  QRegularExpression::CaseInsensitiveOption);
    const auto boundary = type.match(QString::fromLatin1(head));
    ASSERT_TRUE(boundary.hasMatch()) << head.toStdString();
    const QString uid = consent()["uid"].toString();
    EXPECT_TRUE(QRegularExpression("^[a-zA-Z0-9]{12}$").match(uid).hasMatch()) << uid.toStdString();
    const qint64 second = clock_->now().toSecsSinceEpoch() - 90;
    const QByteArray events =
        QStringLiteral(
            R"([{"event":"launch","date":%1},{"event":"specs","date":%1,"data":"6.1.0"},{"event":"launch","date":%2}])")
            .arg(second)
            .arg(second + 90)
            .toUtf8();
    const std::pair<const char*, QByteArray> fields[] = {{"uid", uid.toUtf8()},
                                                         {"app", "com.quorvant.Cardsweep"},
                                                         {"version", "0.1.0"},
                                                         {"events", events}};
    QByteArray expected;
    for (const auto& [name, value] : fields)
        expected += "--" + boundary.captured(1).toUtf8() +
                    "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
                    "\r\n";  // and no closing boundary
    EXPECT_EQ(body, expected);

    // The same day: kept, not sent; a day later: sent, with the same identifier.
    clock_->advance(std::chrono::hours(3));
    launch(1);
    clock_->advance(std::chrono::hours(20));
    launch(1);
    QCoreApplication::processEvents();
    EXPECT_EQ(receiver_.requests.size(), 1u);
    os_ = "6.2.0";
    clock_->advance(std::chrono::hours(2));
    const auto later = launch(1);
    ASSERT_TRUE(waitUntil([&] { return receiver_.requests.size() == 2; }));
    EXPECT_TRUE(receiver_.requests.back().contains(R"({"event":"specs","date":)"))
        << "a new version is told once";
    EXPECT_TRUE(receiver_.requests.back().contains("\r\n\r\n" + uid.toUtf8() + "\r\n"));

    // After 90 days the identifier is a new one.
    clock_->advance(std::chrono::hours(24 * 91));
    const auto renewed = launch(1);
    ASSERT_TRUE(waitUntil([&] { return receiver_.requests.size() == 3; }));
    EXPECT_NE(consent()["uid"].toString(), uid);
    EXPECT_TRUE(receiver_.requests.back().contains("\r\n\r\n" +
                                                   consent()["uid"].toString().toUtf8() + "\r\n"));
}

TEST_F(QVQCTest, WithNoEndpointNothingIsSent) {
    settings_.set(SettingsKey::analyticsEndpoint, QString());
    for (int i = 0; i < 5; ++i)
        launch(1);
    QCoreApplication::processEvents();
    EXPECT_TRUE(receiver_.requests.empty());
    EXPECT_TRUE(QFileInfo::exists(work_.filePath("QC/com.quorvant.Cardsweep"))) << "kept for later";
}
