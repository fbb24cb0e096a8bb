// The reference cipher plugin as the library loads it (by name, through the library search
// path): round trips, tampering, key derivation, buffer bounds, threads, and its documented
// layout checked against libsodium itself, so that a controller can be built from the notes.

#include <gtest/gtest.h>
#include <sodium.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "support/FakeController.h"
#include "support/Library.h"
#include "tools/cipher/zanth_cipher.h"
#include "zanth.h"

namespace zanth::test {
namespace {

using Key = std::array<unsigned char, 32>;

Key KeyFor(MessageUtil& util, const std::string& identify, const std::string& seed) {
    Key key;
    key.fill(0xA5);
    EXPECT_EQ(util.GenerateKey(identify.c_str(), seed.c_str(), key.data(), 32), 0);
    return key;
}

// An encrypted frame of `plain`, header included; empty when the layer refuses.
std::string SealFrame(MessageUtil& util, const std::string& plain, const Key& key) {
    std::vector<char> out(ZANTH_CIPHER_BUFFER_SIZE + 1);
    int32_t cipherLength = -1;
    if (util.EncryptMessage(plain.data(), static_cast<int32_t>(plain.size()), out.data(),
                            ZANTH_CIPHER_BUFFER_SIZE, &cipherLength, key.data()) != 0) {
        return {};
    }
    return std::string(out.data(), static_cast<size_t>(cipherLength) + 5);
}

// The decrypt result, with the plain text in `plain`.
int32_t OpenFrame(MessageUtil& util, const std::string& frame, const Key& key, std::string* plain) {
    std::vector<char> out(kRecordMessageSize, 'Q');
    int32_t length = -1;
    int32_t rc = util.DecryptMessage(frame.data(), static_cast<int32_t>(frame.size()), out.data(),
                                     static_cast<int32_t>(out.size()), &length, key.data());
    *plain =
        rc == 0 ? std::string(out.data(), static_cast<size_t>(length)) : std::string(out.data());
    return rc;
}

const std::string kIdentify = Frame(1043, "02:5A:37:AA:BB:CC;4.2;");

TEST(CipherPlugin, FrameRoundTripWithAFreshNonceEachTime) {
    Crypto crypto;
    MessageUtil util(&crypto);
    Key key = KeyFor(util, kIdentify, "sesame");
    const std::string plain = Frame(1079, "Zanth;4.2;AA:BB:CC;");
    std::string first = SealFrame(util, plain, key);
    std::string second = SealFrame(util, plain, key);
    ASSERT_FALSE(first.empty());
    ASSERT_EQ(first.size(), plain.size() + ZANTH_CIPHER_OVERHEAD + 5);
    char header[8];
    std::snprintf(header, sizeof header, "%04d;", static_cast<int>(first.size()));
    EXPECT_EQ(first.substr(0, 5), header);
    EXPECT_EQ(first.find(plain), std::string::npos);
    EXPECT_NE(first, second) << "the same text must not give the same cipher text twice";

    std::string opened;
    ASSERT_EQ(OpenFrame(util, first, key, &opened), 0);
    EXPECT_EQ(opened, plain);
    ASSERT_EQ(OpenFrame(util, second, key, &opened), 0);
    EXPECT_EQ(opened, plain);
}

TEST(CipherPlugin, AnyAlteredByteOrAnotherKeyIsRefused) {
    Crypto crypto;
    MessageUtil util(&crypto);
    Key key = KeyFor(util, kIdentify, "sesame");
    const std::string plain = Frame(1061, "1;01/02/2024;10:00:00;door open;");
    const std::string frame = SealFrame(util, plain, key);
    ASSERT_FALSE(frame.empty());
    const size_t nonce = 5, body = 5 + ZANTH_CIPHER_NONCE_BYTES + 3, tag = frame.size() - 1;
    for (size_t at : {nonce, nonce + ZANTH_CIPHER_NONCE_BYTES - 1, body, tag}) {
        std::string bad = frame;
        bad[at] = static_cast<char>(bad[at] ^ 0x01);
        std::string opened;
        EXPECT_EQ(OpenFrame(util, bad, key, &opened), -10022) << "byte " << at;
        EXPECT_EQ(opened, "") << "no plain text of a forged frame is handed out";
    }
    // One byte short, with a header that agrees.
    std::string shortened = frame.substr(0, frame.size() - 1);
    char header[8];
    std::snprintf(header, sizeof header, "%04d;", static_cast<int>(shortened.size()));
    shortened.replace(0, 5, header);
    std::string opened;
    EXPECT_EQ(OpenFrame(util, shortened, key, &opened), -10022);

    Key other = KeyFor(util, kIdentify, "sesame2");
    EXPECT_EQ(OpenFrame(util, frame, other, &opened), -10022);
}

TEST(CipherPlugin, KeyDependsOnBothTextsInTheirRoles) {
    Crypto cipherOne, cipherTwo;
    MessageUtil one(&cipherOne), two(&cipherTwo);
    Key base = KeyFor(one, kIdentify, "sesame");
    EXPECT_EQ(KeyFor(two, kIdentify, "sesame"), base) << "another instance derives the same key";
    EXPECT_EQ(KeyFor(one, kIdentify, "sesame"), base);
    Key zero{};
    EXPECT_NE(base, zero);

    std::vector<Key> keys = {
        base,
        KeyFor(one, kIdentify, "sesamE"),
        KeyFor(one, kIdentify, ""),
        KeyFor(one, Frame(1043, "02:5A:37:AA:BB:CD;4.2;"), "sesame"),
        // The texts swapped, and the same characters split differently between them.
        KeyFor(one, "sesame", kIdentify),
        KeyFor(one, "ab", "c"),
        KeyFor(one, "a", "bc"),
    };
    for (size_t i = 0; i < keys.size(); ++i) {
        for (size_t j = i + 1; j < keys.size(); ++j) EXPECT_NE(keys[i], keys[j]) << i << "," << j;
    }
}

TEST(CipherPlugin, DocumentedDerivationAndLayoutMatchLibsodium) {
    ASSERT_GE(sodium_init(), 0);
    const std::string seed = "sesame";
    // seedKey = BLAKE2b-256("zanth-sodium/seed/v1" 0 seed); key = BLAKE2b-256 keyed with it
    // over ("zanth-sodium/link/v1" 0 identification).
    std::string seedInput = std::string("zanth-sodium/seed/v1") + '\0' + seed;
    std::string linkInput = std::string("zanth-sodium/link/v1") + '\0' + kIdentify;
    Key seedKey, expected;
    crypto_generichash(seedKey.data(), 32, reinterpret_cast<const unsigned char*>(seedInput.data()),
                       seedInput.size(), nullptr, 0);
    crypto_generichash(expected.data(), 32,
                       reinterpret_cast<const unsigned char*>(linkInput.data()), linkInput.size(),
                       seedKey.data(), 32);
    Crypto crypto;
    MessageUtil util(&crypto);
    Key key = KeyFor(util, kIdentify, seed);
    ASSERT_EQ(key, expected);

    // Plugin to libsodium: nonce, then cipher text and tag.
    const std::string plain = Frame(70);
    const std::string frame = SealFrame(util, plain, key);
    ASSERT_EQ(frame.size(), 5 + ZANTH_CIPHER_OVERHEAD + plain.size());
    const auto* cipher = reinterpret_cast<const unsigned char*>(frame.data()) + 5;
    std::vector<unsigned char> opened(plain.size());
    unsigned long long openedLength = 0;
    ASSERT_EQ(crypto_aead_xchacha20poly1305_ietf_decrypt(
                  opened.data(), &openedLength, nullptr, cipher + ZANTH_CIPHER_NONCE_BYTES,
                  frame.size() - 5 - ZANTH_CIPHER_NONCE_BYTES, nullptr, 0, cipher, key.data()),
              0);
    EXPECT_EQ(std::string(opened.begin(), opened.begin() + static_cast<long>(openedLength)), plain);

    // libsodium to plugin.
    std::vector<unsigned char> sealed(ZANTH_CIPHER_OVERHEAD + plain.size());
    randombytes_buf(sealed.data(), ZANTH_CIPHER_NONCE_BYTES);
    unsigned long long sealedLength = 0;
    crypto_aead_xchacha20poly1305_ietf_encrypt(
        sealed.data() + ZANTH_CIPHER_NONCE_BYTES, &sealedLength,
        reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), nullptr, 0, nullptr,
        sealed.data(), key.data());
    char header[8];
    std::snprintf(header, sizeof header, "%04d;", static_cast<int>(sealed.size() + 5));
    std::string incoming = header + std::string(sealed.begin(), sealed.end());
    std::string back;
    ASSERT_EQ(OpenFrame(util, incoming, key, &back), 0);
    EXPECT_EQ(back, plain);
}

TEST(CipherPlugin, LargestClearFrameFitsTheAnnouncedBuffer) {
    Crypto crypto;
    MessageUtil util(&crypto);
    int32_t room = 0;
    ASSERT_EQ(util.GetBufferSize(&room), 0);
    ASSERT_GE(room, kRecordMessageSize) << "a Worker must grow its buffers to this size";
    Key key = KeyFor(util, kIdentify, "sesame");
    std::string payload(kWorkingBufferSize - 10, 'p');
    const std::string plain = Frame(1059, payload);
    ASSERT_EQ(plain.size(), static_cast<size_t>(kWorkingBufferSize));

    // As a Worker sends: the whole announced size is the room, header included.
    std::vector<char> out(static_cast<size_t>(room) + 1);
    int32_t cipherLength = 0;
    ASSERT_EQ(util.EncryptMessage(plain.data(), static_cast<int32_t>(plain.size()), out.data(),
                                  room, &cipherLength, key.data()),
              0);
    EXPECT_LE(cipherLength + 5, room);
    std::string frame(out.data(), static_cast<size_t>(cipherLength) + 5);
    std::string opened;
    ASSERT_EQ(OpenFrame(util, frame, key, &opened), 0);
    EXPECT_EQ(opened, plain);
}

TEST(CipherPlugin, EntryPointsNeverWritePastTheirBuffers) {
    Crypto crypto;
    Key key{};
    ASSERT_EQ(crypto.GenerateKey("identify", "seed", key.data(), 32), 0);
    const std::string plain = "0079;0010;";
    const int32_t plainLen = static_cast<int32_t>(plain.size());
    const auto* in = reinterpret_cast<const unsigned char*>(plain.data());
    const int32_t needed = plainLen + ZANTH_CIPHER_OVERHEAD;

    std::vector<unsigned char> out(static_cast<size_t>(needed) + 8, 0xEE);
    int32_t outLen = -77;
    EXPECT_LT(crypto.Encrypt(in, plainLen, out.data(), needed - 1, &outLen, key.data()), 0);
    EXPECT_EQ(outLen, -77) << "the length is set only on success";
    for (size_t i = static_cast<size_t>(needed) - 1; i < out.size(); ++i)
        ASSERT_EQ(out[i], 0xEE) << i;

    ASSERT_EQ(crypto.Encrypt(in, plainLen, out.data(), needed, &outLen, key.data()), 0);
    ASSERT_EQ(outLen, needed);
    for (size_t i = static_cast<size_t>(needed); i < out.size(); ++i) ASSERT_EQ(out[i], 0xEE) << i;

    std::vector<unsigned char> back(static_cast<size_t>(plainLen) + 8, 0xEE);
    int32_t backLen = -77;
    EXPECT_LT(crypto.Decrypt(out.data(), outLen, back.data(), plainLen - 1, &backLen, key.data()),
              0);
    EXPECT_EQ(backLen, -77);
    for (size_t i = static_cast<size_t>(plainLen) - 1; i < back.size(); ++i)
        ASSERT_EQ(back[i], 0xEE);
    ASSERT_EQ(crypto.Decrypt(out.data(), outLen, back.data(), plainLen, &backLen, key.data()), 0);
    EXPECT_EQ(backLen, plainLen);
    EXPECT_EQ(std::string(back.begin(), back.begin() + plainLen), plain);
    EXPECT_EQ(back[static_cast<size_t>(plainLen)], 0xEE);
    // Shorter than a nonce and a tag: nothing to authenticate.
    EXPECT_LT(crypto.Decrypt(out.data(), ZANTH_CIPHER_OVERHEAD - 1, back.data(),
                             static_cast<int32_t>(back.size()), &backLen, key.data()),
              0);
}

TEST(CipherPlugin, EntryPointsRefuseBadArguments) {
    Crypto crypto;
    Key key{};
    unsigned char in[16] = {}, out[128] = {};
    int32_t outLen = 0;
    EXPECT_LT(crypto.Encrypt(nullptr, 4, out, sizeof out, &outLen, key.data()), 0);
    EXPECT_LT(crypto.Encrypt(in, 4, nullptr, sizeof out, &outLen, key.data()), 0);
    EXPECT_LT(crypto.Encrypt(in, 4, out, sizeof out, nullptr, key.data()), 0);
    EXPECT_LT(crypto.Encrypt(in, 4, out, sizeof out, &outLen, nullptr), 0);
    EXPECT_LT(crypto.Encrypt(in, -1, out, sizeof out, &outLen, key.data()), 0);
    EXPECT_LT(crypto.Encrypt(in, 4, out, -1, &outLen, key.data()), 0);
    // In and out overlapping: refused rather than enciphered over itself.
    EXPECT_LT(crypto.Encrypt(out, 16, out + 8, 100, &outLen, key.data()), 0);
    EXPECT_LT(crypto.Decrypt(nullptr, 60, out, sizeof out, &outLen, key.data()), 0);
    EXPECT_LT(crypto.Decrypt(in, 16, out, sizeof out, &outLen, nullptr), 0);

    Key derived;
    derived.fill(0x5A);
    for (int32_t size : {0, 16, 31, 33, -32}) {
        EXPECT_LT(crypto.GenerateKey("identify", "seed", derived.data(), size), 0) << size;
    }
    EXPECT_LT(crypto.GenerateKey(nullptr, "seed", derived.data(), 32), 0);
    EXPECT_LT(crypto.GenerateKey("identify", nullptr, derived.data(), 32), 0);
    EXPECT_LT(crypto.GenerateKey("identify", "seed", nullptr, 32), 0);
    for (unsigned char b : derived) ASSERT_EQ(b, 0x5A) << "a refused key is not written";

    const int32_t exact = static_cast<int32_t>(sizeof ZANTH_CIPHER_VERSION);
    std::vector<char> version(64, '#');
    EXPECT_LT(crypto.GetVersion(version.data(), exact - 1), 0);
    EXPECT_LT(crypto.GetVersion(nullptr, 64), 0);
    ASSERT_EQ(crypto.GetVersion(version.data(), exact), 0);
    EXPECT_STREQ(version.data(), ZANTH_CIPHER_VERSION);
    EXPECT_EQ(version[static_cast<size_t>(exact)], '#');
}

TEST(CipherPlugin, ManyThreadsWithTheirOwnKeysAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 300;
    std::atomic<int> failures{0};
    std::atomic<int> crossAccepted{0};
    // Every thread publishes one frame under its key; the others must not open it.
    std::vector<std::string> published(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            Crypto crypto;  // one per thread, as every Worker has its own
            MessageUtil util(&crypto);
            Key key = KeyFor(util, kIdentify, "seed-" + std::to_string(t));
            published[static_cast<size_t>(t)] =
                SealFrame(util, Frame(1061, "from " + std::to_string(t) + ";"), key);
            ++ready;
            for (int r = 0; r < kRounds; ++r) {
                std::string plain =
                    Frame(1079, std::string(static_cast<size_t>((r * 37 + t) % 4000),
                                            'a' + static_cast<char>(t)));
                std::string frame = SealFrame(util, plain, key);
                std::string opened;
                if (frame.empty() || OpenFrame(util, frame, key, &opened) != 0 || opened != plain) {
                    ++failures;
                }
            }
            while (ready.load() < kThreads) std::this_thread::yield();
            for (int other = 0; other < kThreads; ++other) {
                if (other == t) continue;
                std::string opened;
                if (OpenFrame(util, published[static_cast<size_t>(other)], key, &opened) == 0) {
                    ++crossAccepted;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(crossAccepted.load(), 0);
}

class CipherVersionTest : public LibraryTest {};

TEST_F(CipherVersionTest, ExportReportsThePluginsVersionText) {
    char version[64];
    std::memset(version, '#', sizeof version);
    ASSERT_EQ(GetEncryptionDLLVersion(version, sizeof version), 0);
    EXPECT_STREQ(version, ZANTH_CIPHER_VERSION);
    // Too small a buffer is the plugin's own failure, not a missing plugin.
    int32_t rc = GetEncryptionDLLVersion(version, 4);
    EXPECT_LT(rc, 0);
    EXPECT_NE(rc, -10022);
    EXPECT_FALSE(LogContains("[Crypto::"));
}

}  // namespace
}  // namespace zanth::test
