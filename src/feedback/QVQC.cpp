#include "QVQC.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QUrl>
#include <QUuid>

#include "QVJSON.h"
#include "QVLog.h"
#include "SettingsKeys.h"
#include "SettingsStore.h"

namespace {

const QString kAlphabet =
    QStringLiteral("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXZY0123456789");
constexpr qint64 kDay = 86400;
constexpr qint64 kIdentifierLife = 7776000;  // 90 days

}  // namespace

QVQC::QVQC(SettingsStore& settings, Places places, std::shared_ptr<const Clock> clock,
           std::function<QString()> osVersion, Ask ask, QObject* parent)
    : QObject(parent),
      settings_(settings),
      places_(std::move(places)),
      clock_(std::move(clock)),
      osVersion_(std::move(osVersion)),
      ask_(std::move(ask)) {
    const PropertyList cached = PropertyList::readFile(places_.cacheFile);
    for (const PropertyList& event : cached.toArray())
        cache_.push_back(event);
    shouldLog_ = consent()[QStringLiteral("logQC")].toInteger() == 1;
    settings_.set(SettingsKey::launchCount, settings_.get(SettingsKey::launchCount) + 1);
}

QVQC::~QVQC() = default;

qint64 QVQC::now() const {
    return clock_->now().toSecsSinceEpoch();
}

PropertyList::Dictionary QVQC::consent() const {
    const PropertyList read = PropertyList::readFile(places_.consentFile);
    return read.type() == PropertyList::Type::Dictionary ? read.toDictionary()
                                                         : PropertyList::Dictionary{};
}

void QVQC::storeConsent(const PropertyList::Dictionary& consent) {
    QDir().mkpath(QFileInfo(places_.consentFile).path());
    PropertyList(consent).writeFile(places_.consentFile);
}

void QVQC::setQCLogging(bool enabled) {
    PropertyList::Dictionary stored = consent();
    stored[QStringLiteral("logQC")] = PropertyList(enabled);
    storeConsent(stored);
    shouldLog_ = enabled;
}

void QVQC::loadQC() {
    const PropertyList::Dictionary stored = consent();
    if (const auto found = stored.find(QStringLiteral("logQC")); found != stored.end()) {
        shouldLog_ = found->second.toBool();
    } else {
        if (settings_.get(SettingsKey::launchCount) < 2)
            return;  // never on the first launch
        const int answer =
            ask_ ? ask_(QStringLiteral("Help improve Quorvant software by submitting analytics and "
                                       "usage data"),
                        {QStringLiteral("Allow"), QStringLiteral("More Info"),
                         QStringLiteral("Don't Allow")})
                 : 0;
        if (answer == 1 || answer == -1) {
            setQCLogging(answer == 1);
        } else {
            const QString page = settings_.get(SettingsKey::analyticsInfoPage);
            if (!page.isEmpty() && openInfoPage_)
                openInfoPage_(page);
        }
    }
    if (!shouldLog_)
        return;
    logLoadEvent();
    logSystemSpecsEvent();
    const PropertyList last = settings_.get(SettingsKey::lastSubmission);
    const bool due = last.isAbsent() ? settings_.get(SettingsKey::launchCount) >= 4
                                     : last.toDateTime().secsTo(clock_->now()) > kDay;
    if (!cache_.empty() && due)
        uploadData();
}

void QVQC::logQCEvent(const PropertyList& event) {
    if (event.isAbsent())
        return;
    shouldLog_ = consent()[QStringLiteral("logQC")].toInteger() == 1;  // the switch may have moved
    cache_.push_back(event);
    writeCache();
}

void QVQC::logLoadEvent() {
    const qint64 time = now();
    for (const PropertyList& event : cache_) {
        if (event[QStringLiteral("event")].toString() == u"launch" &&
            time - event[QStringLiteral("date")].toInteger() < 60)
            return;  // a relaunch within the minute counts once
    }
    logQCEvent(PropertyList(
        PropertyList::Dictionary{{QStringLiteral("event"), PropertyList(QStringLiteral("launch"))},
                                 {QStringLiteral("date"), PropertyList(time)}}));
}

void QVQC::logSystemSpecsEvent() {
    const QString version = osVersion_ ? osVersion_() : QString();
    if (version.isEmpty() || version == settings_.get(SettingsKey::lastOSVersion))
        return;
    logQCEvent(PropertyList(
        PropertyList::Dictionary{{QStringLiteral("event"), PropertyList(QStringLiteral("specs"))},
                                 {QStringLiteral("date"), PropertyList(now())},
                                 {QStringLiteral("data"), PropertyList(version)}}));
    settings_.set(SettingsKey::lastOSVersion, version);
}

void QVQC::writeCache() {
    if (!shouldLog_)
        return;
    QDir().mkpath(QFileInfo(places_.cacheFile).path());
    if (places_.bundleIdentifier.isEmpty()) {
        QVLog::appendLog(u"Unable to write the analytics cache: no application identifier");
        return;
    }
    PropertyList(PropertyList::Array(cache_.begin(), cache_.end())).writeFile(places_.cacheFile);
}

void QVQC::willTerminate() {
    writeCache();
}

QString QVQC::generateRandomString(int length) {
    QString text;
    for (int i = 0; i < length; ++i)
        text += kAlphabet[int(QRandomGenerator::system()->bounded(quint32(kAlphabet.size())))];
    return text;
}

QString QVQC::identifier() {
    PropertyList::Dictionary stored = consent();
    const PropertyList assigned = stored[QStringLiteral("uidAssigned")];
    const QString uid = stored[QStringLiteral("uid")].toString();
    if (!uid.isEmpty() && !assigned.isAbsent() &&
        assigned.toDateTime().secsTo(clock_->now()) < kIdentifierLife)
        return uid;
    const QString fresh = generateRandomString(12);
    stored[QStringLiteral("uid")] = PropertyList(fresh);
    stored[QStringLiteral("uidAssigned")] = PropertyList(clock_->now());
    storeConsent(stored);
    return fresh;
}

std::optional<QByteArray> QVQC::eventsJson(const std::vector<PropertyList>& events) {
    const JsonValue value = QVJSON::fromPropertyList(
        PropertyList(PropertyList::Array(events.begin(), events.end())),
        {QStringLiteral("event"), QStringLiteral("date"), QStringLiteral("data")});
    QString error;
    const auto text = QVJSON::stringify(value, &error);
    if (!text)
        QVLog::appendLog(u"%@", error);
    return text;
}

void QVQC::uploadData() {
    shouldLog_ = consent()[QStringLiteral("logQC")].toInteger() == 1;
    if (!shouldLog_ || cache_.empty())
        return;
    const QString endpoint = settings_.get(SettingsKey::analyticsEndpoint);
    if (endpoint.isEmpty()) {
        if (!saidNoEndpoint_)
            QVLog::appendLog(u"Analytics are kept but not sent: no endpoint is set");
        saidNoEndpoint_ = true;
        return;
    }
    const auto events = eventsJson(cache_);
    if (!events)
        return;
    post({{QStringLiteral("uid"), identifier()},
          {QStringLiteral("app"), places_.bundleIdentifier.isEmpty() ? QStringLiteral("Unknown")
                                                                     : places_.bundleIdentifier},
          {QStringLiteral("version"),
           places_.version.isEmpty() ? QStringLiteral("Unknown") : places_.version},
          {QStringLiteral("events"), QString::fromUtf8(*events)}},
         endpoint);
    // Sent or not, these events are not kept for a retry.
    cache_.clear();
    QFile::remove(places_.cacheFile);
    settings_.set(SettingsKey::lastSubmission, PropertyList(clock_->now()));
}

QByteArray QVQC::generateFormData(const std::vector<std::pair<QString, QString>>& fields,
                                  const QString& boundary) {
    QByteArray body;
    for (const auto& [name, value] : fields) {
        body += QStringLiteral("--%1\r\n").arg(boundary).toUtf8();
        body += QStringLiteral("Content-Disposition: form-data; name=\"%1\"\r\n\r\n")
                    .arg(name)
                    .toUtf8();
        body += value.toUtf8();
        body += "\r\n";
    }
    return body;
}

void QVQC::post(const std::vector<std::pair<QString, QString>>& fields, const QString& address) {
    const QString boundary = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    QNetworkRequest request{QUrl(address)};
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("multipart/form-data; boundary=%1").arg(boundary));
    if (!network_)
        network_ = std::make_unique<QNetworkAccessManager>();
    QNetworkReply* reply = network_->post(request, generateFormData(fields, boundary));
    if (reply == nullptr) {
        QVLog::appendLogAndPrint(u"Failed to establish a connection. Please try again later.");
        return;
    }
    QVLog::appendLog(u"Sending QC log to Quorvant...");
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        const bool ok = reply->error() == QNetworkReply::NoError;
        if (!ok)
            QVLog::appendLogAndPrint(u"Connection failed - %@", reply->errorString());
        Q_EMIT uploadFinished(ok);
    });
}
