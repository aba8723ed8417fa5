#include "DigestContext.h"

#include <openssl/evp.h>
#include <xxhash.h>

#include <array>
#include <stdexcept>

// One algorithm's state behind a common face, so the context stays a plain value.
class DigestContext::Algorithm {
  public:
    virtual ~Algorithm() = default;
    virtual std::unique_ptr<Algorithm> clone() const = 0;
    virtual void update(const void* data, std::size_t length) = 0;
    /// Writes the digest's bytes (at most 64) and returns how many.
    virtual std::size_t finish(unsigned char* out) const = 0;
};

namespace {

struct EvpFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

class Evp final : public DigestContext::Algorithm {
  public:
    explicit Evp(const EVP_MD* md) : context_(EVP_MD_CTX_new()) {
        if (!context_ || EVP_DigestInit_ex(context_.get(), md, nullptr) != 1)
            throw std::runtime_error("digest initialisation failed");
    }
    Evp(const Evp& other) : context_(EVP_MD_CTX_new()) {
        if (!context_ || EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()) != 1)
            throw std::runtime_error("digest copy failed");
    }
    std::unique_ptr<Algorithm> clone() const override { return std::make_unique<Evp>(*this); }
    void update(const void* data, std::size_t length) override {
        EVP_DigestUpdate(context_.get(), data, length);
    }
    std::size_t finish(unsigned char* out) const override {
        Evp finished(*this);
        unsigned int length = 0;
        EVP_DigestFinal_ex(finished.context_.get(), out, &length);
        return length;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, EvpFree> context_;
};

struct Xxh64Free {
    void operator()(XXH64_state_t* state) const { XXH64_freeState(state); }
};

class Xxh64 final : public DigestContext::Algorithm {
  public:
    Xxh64() : state_(XXH64_createState()) {
        if (!state_ || XXH64_reset(state_.get(), 0) != XXH_OK)
            throw std::runtime_error("digest initialisation failed");
    }
    Xxh64(const Xxh64& other) : state_(XXH64_createState()) {
        if (!state_)
            throw std::runtime_error("digest copy failed");
        XXH64_copyState(state_.get(), other.state_.get());
    }
    std::unique_ptr<Algorithm> clone() const override { return std::make_unique<Xxh64>(*this); }
    void update(const void* data, std::size_t length) override {
        XXH64_update(state_.get(), data, length);
    }
    std::size_t finish(unsigned char* out) const override {
        XXH64_canonical_t canonical;
        XXH64_canonicalFromHash(&canonical, XXH64_digest(state_.get()));
        std::copy(std::begin(canonical.digest), std::end(canonical.digest), out);
        return sizeof canonical.digest;
    }

  private:
    std::unique_ptr<XXH64_state_t, Xxh64Free> state_;
};

struct Xxh3Free {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

// XXH3 keeps one state for both widths; the width is chosen at reset and at the end.
class Xxh3 final : public DigestContext::Algorithm {
  public:
    explicit Xxh3(bool wide) : wide_(wide), state_(XXH3_createState()) {
        if (!state_)
            throw std::runtime_error("digest initialisation failed");
        const XXH_errorcode reset =
            wide_ ? XXH3_128bits_reset(state_.get()) : XXH3_64bits_reset(state_.get());
        if (reset != XXH_OK)
            throw std::runtime_error("digest initialisation failed");
    }
    Xxh3(const Xxh3& other) : wide_(other.wide_), state_(XXH3_createState()) {
        if (!state_)
            throw std::runtime_error("digest copy failed");
        XXH3_copyState(state_.get(), other.state_.get());
    }
    std::unique_ptr<Algorithm> clone() const override { return std::make_unique<Xxh3>(*this); }
    void update(const void* data, std::size_t length) override {
        if (wide_)
            XXH3_128bits_update(state_.get(), data, length);
        else
            XXH3_64bits_update(state_.get(), data, length);
    }
    std::size_t finish(unsigned char* out) const override {
        if (wide_) {
            XXH128_canonical_t canonical;
            XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state_.get()));
            std::copy(std::begin(canonical.digest), std::end(canonical.digest), out);
            return sizeof canonical.digest;
        }
        XXH64_canonical_t canonical;
        XXH64_canonicalFromHash(&canonical, XXH3_64bits_digest(state_.get()));
        std::copy(std::begin(canonical.digest), std::end(canonical.digest), out);
        return sizeof canonical.digest;
    }

  private:
    bool wide_;
    std::unique_ptr<XXH3_state_t, Xxh3Free> state_;
};

std::unique_ptr<DigestContext::Algorithm> makeAlgorithm(DigestContext::Kind kind) {
    switch (kind) {
        case DigestContext::Kind::SHA1:
            return std::make_unique<Evp>(EVP_sha1());
        case DigestContext::Kind::XXH64:
            return std::make_unique<Xxh64>();
        case DigestContext::Kind::XXH3:
            return std::make_unique<Xxh3>(false);
        case DigestContext::Kind::XXH128:
            return std::make_unique<Xxh3>(true);
        case DigestContext::Kind::MD5:
            break;
    }
    return std::make_unique<Evp>(EVP_md5());
}

constexpr std::array<const char*, DigestContext::kKinds> kNames = {"md5", "sha1", "xxh64", "xxh3",
                                                                   "xxh128"};
constexpr std::array<int, DigestContext::kKinds> kHexLengths = {32, 40, 16, 16, 32};

}  // namespace

DigestContext::DigestContext(Kind kind) : kind_(kind), algorithm_(makeAlgorithm(kind)) {}

DigestContext::DigestContext(Kind kind, const std::vector<Kind>& also) : DigestContext(kind) {
    for (const Kind other : also)
        also_.push_back(makeAlgorithm(other));
}

DigestContext::DigestContext(const DigestContext& other)
    : kind_(other.kind_), algorithm_(other.algorithm_->clone()) {
    for (const auto& algorithm : other.also_)
        also_.push_back(algorithm->clone());
}

DigestContext& DigestContext::operator=(const DigestContext& other) {
    if (this != &other)
        *this = DigestContext(other);
    return *this;
}

DigestContext::DigestContext(DigestContext&&) noexcept = default;
DigestContext& DigestContext::operator=(DigestContext&&) noexcept = default;
DigestContext::~DigestContext() = default;

void DigestContext::update(const void* data, std::size_t length) {
    if (length == 0)
        return;
    algorithm_->update(data, length);
    for (const auto& algorithm : also_)
        algorithm->update(data, length);
}

QString DigestContext::hexDigest() const {
    unsigned char digest[64];
    const std::size_t length = algorithm_->finish(digest);
    return toHex(digest, length);
}

QStringList DigestContext::alsoHexDigests() const {
    QStringList digests;
    unsigned char digest[64];
    for (const auto& algorithm : also_)
        digests << toHex(digest, algorithm->finish(digest));
    return digests;
}

QString DigestContext::name(Kind kind) {
    return QString::fromLatin1(kNames[std::size_t(kind)]);
}

std::optional<DigestContext::Kind> DigestContext::fromName(const QString& name) {
    for (std::size_t i = 0; i < kNames.size(); ++i) {
        if (name.compare(QLatin1String(kNames[i]), Qt::CaseInsensitive) == 0)
            return Kind(i);
    }
    return std::nullopt;
}

int DigestContext::hexLength(Kind kind) {
    return kHexLengths[std::size_t(kind)];
}

QString DigestContext::toHex(const unsigned char* digest, std::size_t length) {
    static constexpr char digits[] = "0123456789abcdef";
    QString text(qsizetype(length * 2), Qt::Uninitialized);
    QChar* out = text.data();
    for (std::size_t i = 0; i < length; ++i) {
        *out++ = QLatin1Char(digits[digest[i] >> 4]);
        *out++ = QLatin1Char(digits[digest[i] & 0x0F]);
    }
    return text;
}
