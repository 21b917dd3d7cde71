#include "zelutils/zip/zip_crypto.h"

#include <zlib.h>

#include <random>

namespace zel_zip::detail {
namespace {

std::uint32_t Crc32Step(std::uint32_t crc, unsigned char byte) {
    static const z_crc_t* table = get_crc_table();
    return table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
}

}  // namespace

TraditionalCipher::TraditionalCipher(const char* password) : keys_{0x12345678u, 0x23456789u, 0x34567890u} {
    for (const char* c = password; c != nullptr && *c != 0; ++c) Update(static_cast<unsigned char>(*c));
}

unsigned char TraditionalCipher::KeyByte() const {
    unsigned temp = (keys_[2] & 0xFFFFu) | 2u;
    return static_cast<unsigned char>((temp * (temp ^ 1u)) >> 8);
}

void TraditionalCipher::Update(unsigned char plain) {
    keys_[0] = Crc32Step(keys_[0], plain);
    keys_[1] = (keys_[1] + (keys_[0] & 0xFFu)) * 134775813u + 1u;
    keys_[2] = Crc32Step(keys_[2], static_cast<unsigned char>(keys_[1] >> 24));
}

void TraditionalCipher::Encrypt(unsigned char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        unsigned char plain = data[i];
        data[i] = static_cast<unsigned char>(plain ^ KeyByte());
        Update(plain);
    }
}

void TraditionalCipher::Decrypt(unsigned char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<unsigned char>(data[i] ^ KeyByte());
        Update(data[i]);
    }
}

void MakeEncryptionHeader(TraditionalCipher& cipher, unsigned char checkByte,
                          unsigned char (&header)[kEncryptionHeaderSize]) {
    static thread_local std::mt19937 random{std::random_device{}()};
    for (unsigned char& byte : header) byte = static_cast<unsigned char>(random());
    header[kEncryptionHeaderSize - 1] = checkByte;
    cipher.Encrypt(header, kEncryptionHeaderSize);
}

bool CheckEncryptionHeader(TraditionalCipher& cipher, unsigned char checkByte,
                           unsigned char (&header)[kEncryptionHeaderSize]) {
    cipher.Decrypt(header, kEncryptionHeaderSize);
    return header[kEncryptionHeaderSize - 1] == checkByte;
}

}  // namespace zel_zip::detail
