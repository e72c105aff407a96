// AParcel and the ndk:: parcel templates: round trips of every type, null
// versus empty, status headers, and malformed or truncated data.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "TestBinders.h"

namespace bindertest {
namespace {

struct Point {
    int32_t x = 0;
    std::optional<std::string> label;

    binder_status_t writeToParcel(AParcel* parcel) const {
        binder_status_t status = AParcel_writeInt32(parcel, x);
        return status == STATUS_OK ? ndk::AParcel_writeString(parcel, label) : status;
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        binder_status_t status = AParcel_readInt32(parcel, &x);
        return status == STATUS_OK ? ndk::AParcel_readString(parcel, &label) : status;
    }
    bool operator==(const Point& other) const { return x == other.x && label == other.label; }
};

// A parcel obtained the only way API 30 offers: preparing a transaction.
class ParcelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mBinder = newEcho(&mObserved);
        refill({});
    }
    AParcel* parcel() { return mParcel.get(); }
    void rewind() { ASSERT_EQ(AParcel_setDataPosition(parcel(), mStart), STATUS_OK); }
    /** Replaces the parcel with a fresh one that holds only \p words, positioned after them. */
    void refill(const std::vector<int32_t>& words) {
        mParcel.set(nullptr);
        ASSERT_EQ(AIBinder_prepareTransaction(mBinder.get(), mParcel.getR()), STATUS_OK);
        mStart = AParcel_getDataPosition(parcel());
        writeInts(words);
    }
    void writeInts(const std::vector<int32_t>& words) {
        for (int32_t word : words) ASSERT_EQ(AParcel_writeInt32(parcel(), word), STATUS_OK);
    }
    /** The next value, read with \p read, which must succeed. */
    template <typename T>
    T readValue(binder_status_t (*read)(const AParcel*, T*)) {
        T value{};
        EXPECT_EQ(read(parcel(), &value), STATUS_OK);
        return value;
    }
    /** Each of \p values, written as a vector at the start, reads back equal. */
    template <typename... T>
    void expectRoundTrips(const T&... values) {
        (expectRoundTrip(values), ...);
    }
    template <typename T>
    void expectRoundTrip(const T& value) {
        rewind();
        ASSERT_EQ(ndk::AParcel_writeVector(parcel(), value), STATUS_OK);
        rewind();
        T read{};
        ASSERT_EQ(ndk::AParcel_readVector(parcel(), &read), STATUS_OK);
        EXPECT_EQ(read, value);
    }

    Observed mObserved;
    ndk::SpAIBinder mBinder;
    ndk::ScopedAParcel mParcel;
    int32_t mStart = 0;
};

TEST_F(ParcelTest, PrimitivesRoundTrip) {
    ASSERT_EQ(AParcel_writeInt32(parcel(), INT32_MIN), STATUS_OK);
    ASSERT_EQ(AParcel_writeUint32(parcel(), UINT32_MAX), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt64(parcel(), INT64_MIN), STATUS_OK);
    ASSERT_EQ(AParcel_writeUint64(parcel(), UINT64_MAX), STATUS_OK);
    ASSERT_EQ(AParcel_writeFloat(parcel(), -1.5f), STATUS_OK);
    ASSERT_EQ(AParcel_writeDouble(parcel(), std::numeric_limits<double>::infinity()), STATUS_OK);
    ASSERT_EQ(AParcel_writeBool(parcel(), true), STATUS_OK);
    ASSERT_EQ(AParcel_writeChar(parcel(), u'\u00e9'), STATUS_OK);
    ASSERT_EQ(AParcel_writeByte(parcel(), -128), STATUS_OK);
    // Every value takes a multiple of 4 bytes, narrow ones exactly 4.
    EXPECT_EQ(AParcel_getDataPosition(parcel()) - mStart, 4 + 4 + 8 + 8 + 4 + 8 + 4 + 4 + 4);
    rewind();
    EXPECT_EQ(readValue(AParcel_readInt32), INT32_MIN);
    EXPECT_EQ(readValue(AParcel_readUint32), UINT32_MAX);
    EXPECT_EQ(readValue(AParcel_readInt64), INT64_MIN);
    EXPECT_EQ(readValue(AParcel_readUint64), UINT64_MAX);
    EXPECT_EQ(readValue(AParcel_readFloat), -1.5f);
    EXPECT_EQ(readValue(AParcel_readDouble), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(readValue(AParcel_readBool));
    EXPECT_EQ(readValue(AParcel_readChar), u'\u00e9');
    EXPECT_EQ(readValue(AParcel_readByte), -128);
    // Past the end: an error, and the output is left alone.
    int32_t i32 = 99;
    EXPECT_EQ(AParcel_readInt32(parcel(), &i32), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(i32, 99);
    int64_t i64 = 0;
    EXPECT_EQ(AParcel_readInt64(parcel(), &i64), STATUS_NOT_ENOUGH_DATA);
}

TEST_F(ParcelTest, DataPosition) {
    EXPECT_EQ(AParcel_setDataPosition(parcel(), -1), STATUS_BAD_VALUE);
    ASSERT_EQ(AParcel_setDataPosition(parcel(), mStart + 64), STATUS_OK);
    int32_t value = 0;
    EXPECT_EQ(AParcel_readInt32(parcel(), &value), STATUS_NOT_ENOUGH_DATA);
    // Writing back at an earlier position overwrites in place; a write past
    // the end fills the gap with zeros; one beyond the 64 MiB cap fails.
    rewind();
    writeInts({1, 2});
    rewind();
    writeInts({3});
    ASSERT_EQ(AParcel_setDataPosition(parcel(), mStart + 16), STATUS_OK);
    writeInts({7});
    rewind();
    for (int32_t word : {3, 2, 0, 0, 7}) EXPECT_EQ(readValue(AParcel_readInt32), word);
    ASSERT_EQ(AParcel_setDataPosition(parcel(), (64 << 20) - 2), STATUS_OK);
    EXPECT_EQ(AParcel_writeInt32(parcel(), 1), STATUS_NO_MEMORY);
}

TEST_F(ParcelTest, StringsKeepNullAndEmptyApart) {
    const std::optional<std::string> cases[] = {std::nullopt, std::string(), std::string("abc"),
                                                std::string("with\0nul", 8), std::string(1000, 'z')};
    for (const auto& sent : cases) {
        rewind();
        ASSERT_EQ(ndk::AParcel_writeString(parcel(), sent), STATUS_OK);
        rewind();
        std::optional<std::string> read = std::string("unset");
        ASSERT_EQ(ndk::AParcel_readString(parcel(), &read), STATUS_OK);
        EXPECT_EQ(read, sent);
    }
    // A null string cannot be read as a non-nullable one.
    rewind();
    ASSERT_EQ(AParcel_writeString(parcel(), nullptr, -1), STATUS_OK);
    rewind();
    std::string plain = "kept";
    EXPECT_EQ(ndk::AParcel_readString(parcel(), &plain), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(plain, "kept");
    EXPECT_EQ(AParcel_getDataPosition(parcel()), mStart);
}

TEST_F(ParcelTest, StringWriteArgumentsAreChecked) {
    EXPECT_EQ(AParcel_writeString(parcel(), nullptr, 0), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel(), nullptr, 3), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel(), "abc", -1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel(), "abc", -2), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_getDataPosition(parcel()), mStart);
}

// Raw int32 words in a fresh parcel, read back as a string.
struct MalformedCase {
    const char* name;
    std::vector<int32_t> words;
    binder_status_t expected;
};

TEST_F(ParcelTest, MalformedStringsFailCleanly) {
    const MalformedCase cases[] = {
            {"negative length", {-2}, STATUS_BAD_VALUE},
            {"very negative length", {INT32_MIN}, STATUS_BAD_VALUE},
            {"length past the end", {100, 0x41414141}, STATUS_NOT_ENOUGH_DATA},
            {"huge length", {INT32_MAX}, STATUS_BAD_VALUE},
            {"missing terminator", {4, 0x41414141, 0x41414141}, STATUS_BAD_VALUE},
            {"nothing", {}, STATUS_NOT_ENOUGH_DATA},
    };
    for (const MalformedCase& c : cases) {
        SCOPED_TRACE(c.name);
        refill(c.words);
        rewind();
        std::optional<std::string> text = std::string("kept");
        EXPECT_EQ(ndk::AParcel_readString(parcel(), &text), c.expected);
        EXPECT_EQ(text, "kept");
        EXPECT_EQ(AParcel_getDataPosition(parcel()), mStart);
    }
}

TEST_F(ParcelTest, TruncatedDataFailsForEveryReader) {
    // A fresh parcel with only an array length of 3 and one element.
    writeInts({3, 7});
    auto check = [&](const char* name, binder_status_t status) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(status == STATUS_NOT_ENOUGH_DATA || status == STATUS_BAD_VALUE) << status;
        EXPECT_EQ(AParcel_getDataPosition(parcel()), mStart);  // nothing consumed
    };
    std::vector<int32_t> i32;
    std::vector<int64_t> i64;
    std::vector<bool> bools;
    std::vector<uint8_t> bytes;
    std::vector<std::string> strings;
    std::vector<Point> points;
    std::vector<char16_t> chars;
    rewind();
    check("int32", ndk::AParcel_readVector(parcel(), &i32));
    check("int64", ndk::AParcel_readVector(parcel(), &i64));
    check("bool", ndk::AParcel_readVector(parcel(), &bools));
    check("char16", ndk::AParcel_readVector(parcel(), &chars));
    check("string", ndk::AParcel_readVector(parcel(), &strings));
    check("parcelable", ndk::AParcel_readVector(parcel(), &points));
    // Byte arrays are packed: 3 bytes fit in the remaining word, so ask for more.
    rewind();
    writeInts({9});
    rewind();
    check("byte", ndk::AParcel_readVector(parcel(), &bytes));
    AIBinder* binder = nullptr;
    rewind();
    writeInts({1, 5});  // an object at an index out of range
    rewind();
    check("binder", AParcel_readStrongBinder(parcel(), &binder));
    EXPECT_EQ(binder, nullptr);
}

TEST_F(ParcelTest, PrimitiveVectorsKeepNullAndEmptyApart) {
    expectRoundTrips(std::vector<int32_t>{1, -2, INT32_MAX}, std::vector<uint64_t>{UINT64_MAX, 0},
                     std::vector<double>{0.5, -2}, std::vector<float>{1.25f},
                     std::vector<uint32_t>{7}, std::vector<bool>{true, false, true},
                     std::vector<char16_t>{u'a', u'\uffff'}, std::vector<int8_t>{-1, 2, 3, 4, 5},
                     std::vector<uint8_t>{255, 0, 1}, std::vector<int64_t>{});
    using OptionalInts = std::optional<std::vector<int32_t>>;
    using OptionalBools = std::optional<std::vector<bool>>;
    using OptionalBytes = std::optional<std::vector<uint8_t>>;
    expectRoundTrips(OptionalInts(), OptionalInts(std::vector<int32_t>{}), OptionalBools(),
                     OptionalBools(std::vector<bool>{false}), OptionalBytes(),
                     OptionalBytes(std::vector<uint8_t>{9}));

    // A null array cannot be read as a plain vector.
    rewind();
    ASSERT_EQ(AParcel_writeInt32Array(parcel(), nullptr, -1), STATUS_OK);
    rewind();
    std::vector<int32_t> plain{5};
    EXPECT_EQ(ndk::AParcel_readVector(parcel(), &plain), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(plain, std::vector<int32_t>{5});
    EXPECT_EQ(AParcel_writeInt32Array(parcel(), nullptr, 2), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AParcel_writeInt32Array(parcel(), nullptr, -2), STATUS_BAD_VALUE);
}

// The size helpers that generated code uses for arrays of parcelables: the
// length that writeVectorSize puts down is the one resizeVector reads back.
TEST_F(ParcelTest, VectorSizeHelpersAgree) {
    using Optional = std::optional<std::vector<Point>>;
    ASSERT_EQ(ndk::AParcel_writeVectorSize(parcel(), std::vector<Point>(3)), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVectorSize(parcel(), Optional()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeVectorSize(parcel(), Optional(std::vector<Point>())), STATUS_OK);
    writeInts({-1, -2});
    rewind();

    std::vector<Point> plain;
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel(), &plain), STATUS_OK);
    EXPECT_EQ(plain.size(), 3u);
    Optional absent(std::vector<Point>(1));
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel(), &absent), STATUS_OK);
    EXPECT_FALSE(absent.has_value());
    Optional empty;
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel(), &empty), STATUS_OK);
    EXPECT_EQ(empty, Optional(std::vector<Point>()));
    // A null array is not a plain vector; below -1 is no length at all.
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel(), &plain), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(plain.size(), 3u);
    EXPECT_EQ(ndk::AParcel_resizeVector(parcel(), &absent), STATUS_UNEXPECTED_NULL);
}

TEST_F(ParcelTest, StringVectorsKeepNullElementsAndNullArrays) {
    using Strings = std::vector<std::optional<std::string>>;
    const Strings withNull{std::nullopt, std::string(), std::string("x")};
    using Nullable = std::optional<Strings>;
    expectRoundTrips(std::vector<std::string>{"", "a", "bc"}, Nullable(), Nullable(Strings{}),
                     Nullable(withNull), withNull);
    // A null element cannot be read into a vector of plain strings.
    rewind();
    ASSERT_EQ(ndk::AParcel_writeVector(parcel(), withNull), STATUS_OK);
    rewind();
    std::vector<std::string> plain;
    EXPECT_EQ(ndk::AParcel_readVector(parcel(), &plain), STATUS_UNEXPECTED_NULL);
}

TEST_F(ParcelTest, ParcelablesWithMarkers) {
    Point point{7, std::nullopt};
    ASSERT_EQ(ndk::AParcel_writeParcelable(parcel(), point), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableParcelable(parcel(), std::optional<Point>()), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableParcelable(parcel(), std::optional<Point>(point)),
              STATUS_OK);
    rewind();
    Point read;
    std::optional<Point> absent = point;
    std::optional<Point> present;
    EXPECT_EQ(ndk::AParcel_readParcelable(parcel(), &read), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readNullableParcelable(parcel(), &absent), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readNullableParcelable(parcel(), &present), STATUS_OK);
    EXPECT_EQ(read, point);
    EXPECT_FALSE(absent.has_value());
    EXPECT_EQ(present, point);
    // Marker 0 read as a required parcelable.
    rewind();
    writeInts({0});
    rewind();
    EXPECT_EQ(ndk::AParcel_readParcelable(parcel(), &read), STATUS_UNEXPECTED_NULL);

    std::vector<Point> points{{1, "a"}, {2, std::nullopt}};
    using Optional = std::optional<std::vector<Point>>;
    expectRoundTrips(points, Optional(), Optional(points));
}

TEST_F(ParcelTest, BindersAndDescriptors) {
    int32_t base = AIBinder_debugGetRefCount(mBinder.get());
    ASSERT_EQ(AParcel_writeStrongBinder(parcel(), nullptr), STATUS_OK);
    ASSERT_EQ(AParcel_writeStrongBinder(parcel(), mBinder.get()), STATUS_OK);
    // The parcel holds a reference of its own.
    EXPECT_EQ(AIBinder_debugGetRefCount(mBinder.get()), base + 1);
    rewind();
    ndk::SpAIBinder null;
    ndk::SpAIBinder same;
    EXPECT_EQ(ndk::AParcel_readNullableStrongBinder(parcel(), &null), STATUS_OK);
    EXPECT_EQ(ndk::AParcel_readRequiredStrongBinder(parcel(), &same), STATUS_OK);
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_EQ(same.get(), mBinder.get());
    EXPECT_EQ(AIBinder_debugGetRefCount(mBinder.get()), base + 2);  // one more for the reader
    rewind();
    EXPECT_EQ(ndk::AParcel_readRequiredStrongBinder(parcel(), &same), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ndk::AParcel_writeRequiredStrongBinder(parcel(), ndk::SpAIBinder()),
              STATUS_UNEXPECTED_NULL);
    // Descriptors cannot cross a host transport; null ones can.
    EXPECT_EQ(AParcel_writeParcelFileDescriptor(parcel(), 0), STATUS_FDS_NOT_ALLOWED);
    rewind();
    ASSERT_EQ(ndk::AParcel_writeNullableParcelFileDescriptor(parcel(), ndk::ScopedFileDescriptor()),
              STATUS_OK);
    rewind();
    ndk::ScopedFileDescriptor fd;
    EXPECT_EQ(ndk::AParcel_readNullableParcelFileDescriptor(parcel(), &fd), STATUS_OK);
    EXPECT_EQ(fd.get(), -1);
}

struct HeaderCase {
    const char* name;
    AStatus* (*make)();
};

TEST_F(ParcelTest, StatusHeaderRoundTrips) {
    const HeaderCase cases[] = {
            {"ok", [] { return AStatus_newOk(); }},
            {"exception", [] { return AStatus_fromExceptionCode(EX_NULL_POINTER); }},
            {"exception with message",
             [] { return AStatus_fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "bad arg"); }},
            {"service specific",
             [] { return AStatus_fromServiceSpecificErrorWithMessage(-31, "nope"); }},
            {"service specific 0", [] { return AStatus_fromServiceSpecificError(0); }},
    };
    for (const HeaderCase& c : cases) {
        SCOPED_TRACE(c.name);
        ndk::ScopedAStatus sent(c.make());
        rewind();
        ASSERT_EQ(AParcel_writeStatusHeader(parcel(), sent.get()), STATUS_OK);
        ASSERT_EQ(AParcel_writeInt32(parcel(), 1234), STATUS_OK);  // what follows the header
        rewind();
        ndk::ScopedAStatus read;
        ASSERT_EQ(AParcel_readStatusHeader(parcel(), read.getR()), STATUS_OK);
        EXPECT_EQ(read.isOk(), sent.isOk());
        EXPECT_EQ(read.getExceptionCode(), sent.getExceptionCode());
        EXPECT_EQ(read.getServiceSpecificError(), sent.getServiceSpecificError());
        EXPECT_STREQ(read.getMessage(), sent.getMessage());
        int32_t next = 0;
        EXPECT_EQ(AParcel_readInt32(parcel(), &next), STATUS_OK);
        EXPECT_EQ(next, 1234);
    }
}

TEST_F(ParcelTest, StatusHeaderOfTransportFailureWritesNothing) {
    ndk::ScopedAStatus failed = ndk::ScopedAStatus::fromStatus(STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_writeStatusHeader(parcel(), failed.get()), STATUS_NO_MEMORY);
    ndk::ScopedAStatus generic = ndk::ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED);
    EXPECT_EQ(AParcel_writeStatusHeader(parcel(), generic.get()), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(AParcel_getDataPosition(parcel()), mStart);
}

TEST_F(ParcelTest, StatusHeaderFromTheWire) {
    // An unknown exception code collapses; a truncated header creates nothing.
    writeInts({-1000});
    ASSERT_EQ(AParcel_writeString(parcel(), "m", 1), STATUS_OK);
    writeInts({0});
    rewind();
    ndk::ScopedAStatus read;
    ASSERT_EQ(AParcel_readStatusHeader(parcel(), read.getR()), STATUS_OK);
    EXPECT_EQ(read.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_STREQ(read.getMessage(), "m");

    refill({EX_SERVICE_SPECIFIC});
    ASSERT_EQ(AParcel_writeString(parcel(), "", 0), STATUS_OK);
    writeInts({0});  // the code is missing
    rewind();
    AStatus* untouched = nullptr;
    EXPECT_EQ(AParcel_readStatusHeader(parcel(), &untouched), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(untouched, nullptr);
}

}  // namespace
}  // namespace bindertest
