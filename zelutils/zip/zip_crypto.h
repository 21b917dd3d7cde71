// Traditional PKWARE zip encryption (internal): the three-key stream cipher
// and its 12-byte encryption header. Weak by today's measure; it is what
// other zip tools read with a plain password.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel_zip::detail {

/// The size of the encryption header in front of an entry's data.
constexpr std::size_t kEncryptionHeaderSize = 12;

/// The cipher's state, keyed by a password.
class TraditionalCipher {
public:
    explicit TraditionalCipher(const char* password);
    void Encrypt(unsigned char* data, std::size_t size);
    void Decrypt(unsigned char* data, std::size_t size);

private:
    unsigned char KeyByte() const;
    void Update(unsigned char plain);

    std::uint32_t keys_[3];
};

/// Fills header with random bytes whose last one is checkByte, encrypted.
void MakeEncryptionHeader(TraditionalCipher& cipher, unsigned char checkByte,
                          unsigned char (&header)[kEncryptionHeaderSize]);
/// Decrypts header and tells whether its last byte is checkByte (a wrong
/// password fails this, save for one chance in 256).
bool CheckEncryptionHeader(TraditionalCipher& cipher, unsigned char checkByte,
                           unsigned char (&header)[kEncryptionHeaderSize]);

}  // namespace zel_zip::detail
