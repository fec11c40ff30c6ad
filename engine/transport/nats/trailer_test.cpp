// Entries with trailers, as anybody may send them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "message/content.h"
#include "transport/nats/frame.h"

namespace quorl::transport::nats {
namespace {

using message::wire::store;

std::vector<uint8_t> entryWith(const std::vector<uint8_t>& trailer) {
    std::vector<uint8_t> bytes{0};
    bytes.insert(bytes.end(), message::emptyImage, message::emptyImage + message::wire::headerSize);
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

std::vector<uint8_t> trailerOf(size_t length, size_t claimed) {
    std::vector<uint8_t> bytes(message::trailer::headerSize + length, 'x');
    store(bytes.data(), uint32_t{'Q' | 'A' << 8 | 1 << 16 | 1 << 24});
    store(bytes.data() + 4, static_cast<uint32_t>(claimed));
    return bytes;
}

bool reads(const std::vector<uint8_t>& bytes, Entry* entry = nullptr) {
    Entry ignored;
    size_t used = 0;
    const bool whole = readEntry(bytes.data(), bytes.size(), entry != nullptr ? entry : &ignored, &used, true);
    return whole && used == bytes.size();
}

TEST(Trailers, areReadWhole) {
    Entry entry;
    ASSERT_TRUE(reads(entryWith(trailerOf(3, 3)), &entry));
    EXPECT_EQ(entry.attributes.size(), 3u);
    EXPECT_EQ(entry.size, message::wire::headerSize);
    EXPECT_TRUE(reads(entryWith(trailerOf(message::attributesMax, message::attributesMax))));
}

TEST(Trailers, thatAreNoneAreRefused) {
    EXPECT_FALSE(reads(entryWith({})));
    const auto whole = entryWith(trailerOf(5, 5));
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(reads({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)})) << size;
    EXPECT_FALSE(reads(entryWith(trailerOf(0, 0))));
    EXPECT_FALSE(reads(entryWith(trailerOf(5, 6))));
    EXPECT_FALSE(reads(entryWith(trailerOf(5, UINT32_MAX))));
    EXPECT_FALSE(reads(entryWith(trailerOf(message::attributesMax + 1, message::attributesMax + 1))));
    for (const size_t at : {0, 1, 2, 3}) {  // magic, version, kind
        auto other = trailerOf(5, 5);
        ++other[at];
        EXPECT_FALSE(reads(entryWith(other))) << at;
    }
}

}  // namespace
}  // namespace quorl::transport::nats
