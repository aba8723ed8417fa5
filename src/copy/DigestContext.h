#pragma once
// The running state of one digest computation (MD5, SHA-1 or one of the xxHash family), fed
// piece by piece by its owner. Copies are independent, so a copy can be finalised while the
// original keeps running. Not thread-safe; one owner at a time.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

class DigestContext {
  public:
    /// The order is the settings' (checksumFormat) and the copy engine's (one less).
    enum class Kind { MD5, SHA1, XXH64, XXH3, XXH128 };
    static constexpr int kKinds = 5;

    explicit DigestContext(Kind kind);
    /// Computes further kinds from the same bytes beside the first (one read, several
    /// digests); hexDigest stays the first's.
    DigestContext(Kind kind, const std::vector<Kind>& also);
    DigestContext(const DigestContext& other);
    DigestContext& operator=(const DigestContext& other);
    DigestContext(DigestContext&&) noexcept;
    DigestContext& operator=(DigestContext&&) noexcept;
    ~DigestContext();

    Kind kind() const { return kind_; }
    void update(const void* data, std::size_t length);
    void update(const QByteArray& data) { update(data.constData(), std::size_t(data.size())); }

    /// Finalises a copy and returns the digest as lower-case hex (xxHash digests in their
    /// canonical, big-endian form); this context is left usable.
    QString hexDigest() const;
    /// The further kinds' digests, in the order they were asked for.
    QStringList alsoHexDigests() const;

    /// Lower-case name as the command line and histories spell it: md5, sha1, xxh64, xxh3,
    /// xxh128.
    static QString name(Kind kind);
    static std::optional<Kind> fromName(const QString& name);
    /// Hex characters of a digest of this kind.
    static int hexLength(Kind kind);

    /// Raw digest bytes as lower-case hex, two digits per byte, no separators.
    static QString toHex(const unsigned char* digest, std::size_t length);

    class Algorithm;

  private:
    Kind kind_;
    std::unique_ptr<Algorithm> algorithm_;
    std::vector<std::unique_ptr<Algorithm>> also_;
};
