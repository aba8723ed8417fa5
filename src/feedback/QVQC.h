#pragma once
// Usage analytics, only with the user's consent: launches (one a minute at most) and the
// system's version on a change are cached between runs and sent at most once a day, as a
// multipart form whose "events" field is our own JSON, to the endpoint the settings name.
// With no endpoint nothing is ever sent. Main thread only (the upload answers there).

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Clock.h"
#include "PropertyList.h"

class QNetworkAccessManager;
class SettingsStore;

class QVQC : public QObject {
    Q_OBJECT

  public:
    /// Where things are kept and what the run is.
    struct Places {
        QString consentFile;  // "com.quorvant.qc.plist": logQC, uid, uidAssigned
        QString cacheFile;    // the events between runs
        QString bundleIdentifier;
        QString version;
    };
    /// The consent sheet: its answer, 1 (default), 0 (alternate) or -1 (other).
    using Ask = std::function<int(const QString& title, const QStringList& buttons)>;

    /// Reads the cache and the consent, and counts this launch.
    QVQC(SettingsStore& settings, Places places, std::shared_ptr<const Clock> clock,
         std::function<QString()> osVersion, Ask ask, QObject* parent = nullptr);
    ~QVQC() override;

    /// The start of a run: asks for consent from the second launch on while the user has not
    /// answered, records this run's events, and uploads when one is due.
    void loadQC();
    void logQCEvent(const PropertyList& event);
    void logLoadEvent();
    void logSystemSpecsEvent();
    bool shouldLog() const { return shouldLog_; }
    void setQCLogging(bool enabled);
    /// Sends the cache now (when allowed and not empty) and empties it.
    void uploadData();
    /// Writes the cache at once (the end of a run).
    void willTerminate();

    const std::vector<PropertyList>& cache() const { return cache_; }
    /// Where the maker's page about analytics is opened ("More Info").
    void setInfoPageOpener(std::function<void(const QString& address)> open) {
        openInfoPage_ = std::move(open);
    }

    /// The form body: per field "--BOUNDARY", its Content-Disposition, an empty line, the
    /// value, CRLF; no closing boundary.
    static QByteArray generateFormData(const std::vector<std::pair<QString, QString>>& fields,
                                       const QString& boundary);
    /// length characters of the identifier alphabet, from the system's strong random source.
    static QString generateRandomString(int length);
    /// The events as JSON: keys "event", "date", "data" in that order; nullopt (logged) when
    /// they can't be written.
    static std::optional<QByteArray> eventsJson(const std::vector<PropertyList>& events);

  Q_SIGNALS:
    /// An upload's answer came (ok: the server answered without a network error).
    void uploadFinished(bool ok);

  private:
    PropertyList::Dictionary consent() const;
    void storeConsent(const PropertyList::Dictionary& consent);
    void writeCache();
    QString identifier();
    void post(const std::vector<std::pair<QString, QString>>& fields, const QString& address);
    qint64 now() const;

    SettingsStore& settings_;
    const Places places_;
    const std::shared_ptr<const Clock> clock_;
    const std::function<QString()> osVersion_;
    const Ask ask_;
    std::function<void(const QString&)> openInfoPage_;
    std::vector<PropertyList> cache_;
    bool shouldLog_ = false;
    bool saidNoEndpoint_ = false;
    std::unique_ptr<QNetworkAccessManager> network_;
};
