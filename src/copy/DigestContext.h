#pragma once
// The running state of one MD5 or SHA-1 computation, fed piece by piece by its owner.
// Copies are independent, so a copy can be finalised while the original keeps running.

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <memory>

struct evp_md_ctx_st;

class DigestContext {
  public:
    enum class Kind { MD5, SHA1 };

    explicit DigestContext(Kind kind);
    DigestContext(const DigestContext& other);
    DigestContext& operator=(const DigestContext& other);
    DigestContext(DigestContext&&) noexcept = default;
    DigestContext& operator=(DigestContext&&) noexcept = default;
    ~DigestContext();

    Kind kind() const { return kind_; }
    void update(const void* data, std::size_t length);
    void update(const QByteArray& data) { update(data.constData(), std::size_t(data.size())); }

    /// Finalises a copy and returns the digest as lower-case hex (32 or 40 characters);
    /// this context is left usable.
    QString hexDigest() const;

    /// Raw digest bytes as lower-case hex, two digits per byte, no separators.
    static QString toHex(const unsigned char* digest, std::size_t length);

  private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    Kind kind_;
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};
