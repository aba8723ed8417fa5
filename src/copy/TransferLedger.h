#pragma once
// What one file-mode transfer did, file by file and destination by destination: the digests a
// manifest is written from, every file that failed and why, the links copied as links, and
// whether the transfer reached the end of the card. Append-only and compact (a card of 100,000
// files costs a few megabytes), so recording is constant time. Thread-safe.

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

class TransferLedger {
  public:
    /// Any destination: the source itself failed.
    static constexpr int kAllDestinations = -1;

    struct Failure {
        QByteArray path;  // relative to the card's root, "/..."
        int destination;  // index, or kAllDestinations
        QString reason;
    };
    struct Link {
        QByteArray path;
        QByteArray target;
    };

    explicit TransferLedger(std::size_t destinations);

    std::size_t destinationCount() const { return destinations_; }

    /// A file read whole from the card: its size, the source's digest (hex) and the digest of
    /// what each destination holds ("" for none), in destination order.
    /// alsoDigests: the card's digests in further kinds, when asked for.
    void recordFile(const QByteArray& relativePath, std::uint64_t size, const QString& sourceDigest,
                    const QStringList& destinationDigests, const QStringList& alsoDigests = {});
    void recordFailure(const QByteArray& relativePath, int destination, const QString& reason);
    void recordLink(const QByteArray& relativePath, const QByteArray& target);
    /// The transfer couldn't go on (the card went): whatever wasn't copied reached no
    /// destination. The first reason is kept.
    void recordInterruption(const QString& reason);

    std::vector<Failure> failures() const;
    /// Copies that were read back whole but differ from the card, as failures.
    std::vector<Failure> damaged() const;
    std::vector<Link> links() const;
    std::optional<QString> interruption() const;
    bool hasProblems() const;

    /// Every file reached the destination and read back with the source's digest.
    bool isComplete(std::size_t destination) const;
    std::uint64_t filesVerified(std::size_t destination) const;
    std::uint64_t bytesVerified(std::size_t destination) const;

    /// The destination's manifest: "digest TAB name" by file name (a later file of a name
    /// replaces an earlier one; a name that failed anywhere stays FAILED), then INCOMPLETE
    /// when the transfer was interrupted. Lines follow the order files were copied in.
    QByteArray manifest(std::size_t destination) const;
    /// The same, line by line, so a card of any size is written without holding it all.
    void manifest(std::size_t destination,
                  const std::function<void(const QByteArray& line)>& out) const;
    /// The destination's digests by file name (text), as the manifest lists them.
    std::map<QString, QString> digestsByName(std::size_t destination) const;

    using FileVisitor = std::function<void(const QByteArray& path, std::uint64_t size,
                                           const QByteArray& sourceDigest)>;
    /// Every file read whole from the card, in the order it was copied: its path, size and
    /// the card's digest (hex). Holds the ledger's lock; the visitor must not call back in.
    void forEachFile(const FileVisitor& visit) const;
    struct Recorded {
        std::uint64_t size = 0;
        QByteArray sourceDigest;       // hex
        std::vector<QByteArray> also;  // hex, further kinds in the order asked for
    };
    /// The file recorded at this path ("/..."), the last one when recorded twice.
    std::optional<Recorded> fileAt(const QByteArray& path) const;

    /// The manifest's file name in the destination, once chosen (empty before).
    QByteArray manifestName(std::size_t destination) const;
    void setManifestName(std::size_t destination, const QByteArray& name);

  private:
    struct Digest {
        std::array<unsigned char, 20> bytes{};
        unsigned char length = 0;
        bool operator==(const Digest& other) const = default;
    };
    struct File {
        QByteArray path;
        std::uint64_t size = 0;
        Digest digest;
        std::vector<Digest> also;  // empty unless further kinds were asked for
    };
    struct Mismatch {
        std::size_t file;
        std::size_t destination;
        Digest digest;  // length 0: the destination holds none
    };
    static Digest parse(const QString& hex);
    static QByteArray hex(const Digest& digest);
    // REQUIRES: mutex_ is held.
    bool failedOn(std::size_t destination) const;
    using LineVisitor = std::function<void(const QByteArray& digest, const QByteArray& name)>;
    // REQUIRES: mutex_ is held.
    void forEachLine(std::size_t destination, const LineVisitor& line) const;

    const std::size_t destinations_;
    mutable std::mutex mutex_;
    std::vector<File> files_;                // guarded by mutex_
    std::vector<Mismatch> mismatches_;       // guarded by mutex_
    std::vector<Failure> failures_;          // guarded by mutex_
    std::vector<Link> links_;                // guarded by mutex_
    std::optional<QString> interruption_;    // guarded by mutex_
    std::vector<QByteArray> manifestNames_;  // guarded by mutex_
    // Built on the first lookup, extended by later ones: views into files_' paths.
    mutable QHash<QByteArrayView, std::size_t> index_;  // guarded by mutex_
    mutable std::size_t indexed_ = 0;                   // guarded by mutex_: files in index_
};
