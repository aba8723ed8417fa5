#include "DigestContext.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace {

const EVP_MD* algorithm(DigestContext::Kind kind) {
    return kind == DigestContext::Kind::SHA1 ? EVP_sha1() : EVP_md5();
}

}  // namespace

void DigestContext::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

DigestContext::DigestContext(Kind kind) : kind_(kind), context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), algorithm(kind), nullptr) != 1)
        throw std::runtime_error("digest initialisation failed");
}

DigestContext::DigestContext(const DigestContext& other)
    : kind_(other.kind_), context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()) != 1)
        throw std::runtime_error("digest copy failed");
}

DigestContext& DigestContext::operator=(const DigestContext& other) {
    if (this != &other)
        *this = DigestContext(other);
    return *this;
}

DigestContext::~DigestContext() = default;

void DigestContext::update(const void* data, std::size_t length) {
    if (length > 0)
        EVP_DigestUpdate(context_.get(), data, length);
}

QString DigestContext::hexDigest() const {
    DigestContext finished(*this);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(finished.context_.get(), digest, &length);
    return toHex(digest, length);
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
