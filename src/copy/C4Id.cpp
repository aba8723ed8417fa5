#include "C4Id.h"

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace {

constexpr char kAlphabet[] = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";

}  // namespace

QString C4Id::of(const QByteArray& bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.constData(), std::size_t(bytes.size()), digest.data(), &length,
                   EVP_sha512(), nullptr) != 1)
        throw std::runtime_error("SHA-512 failed");
    return fromSha512(QByteArray(reinterpret_cast<const char*>(digest.data()), int(length)));
}

// Long division of the 512-bit big-endian number by 58, least significant digit first.
QString C4Id::fromSha512(const QByteArray& digest) {
    std::array<unsigned char, 64> number{};
    std::copy_n(digest.constData(), std::min<qsizetype>(digest.size(), 64), number.begin());
    QByteArray digits(kLength - 2, '1');
    for (int position = kLength - 3; position >= 0; --position) {
        unsigned remainder = 0;
        for (unsigned char& byte : number) {
            const unsigned value = (remainder << 8) | byte;
            byte = static_cast<unsigned char>(value / 58);
            remainder = value % 58;
        }
        digits[position] = kAlphabet[remainder];
    }
    return QStringLiteral("c4") + QString::fromLatin1(digits);
}
