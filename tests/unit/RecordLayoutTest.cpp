#include <gtest/gtest.h>

#include <cstddef>

#include <OcppRecords.h>

// Hosts parse these records by byte offset; a moved field breaks every host silently.
// Request records the dispatcher fills are checked field by field by the dispatch test.

TEST(RecordLayout, StatusRecordKeepsItsByteOffsets) {
    EXPECT_EQ(offsetof(SdkStatusChange, status), 41u);
    EXPECT_EQ(offsetof(SdkStatusChange, statusChangeOption), 45u);
    EXPECT_EQ(offsetof(SdkStatusChange, protocol), 49u);
    EXPECT_EQ(offsetof(SdkStatusChange, needReportVariables), 53u);
    EXPECT_EQ(offsetof(SdkStatusChange, resetFactoryConfig), 57u);
}

TEST(RecordLayout, TransactionAndMessageRecordsKeepTheirByteOffsets) {
    EXPECT_EQ(offsetof(NotifyTransactionStop, transactionId), 41u);
    EXPECT_EQ(offsetof(NotifyTransactionStop, stopReason), 78u);
    EXPECT_EQ(offsetof(PersonalMsg, evseId), 41u);
    EXPECT_EQ(offsetof(PersonalMsg, transactionId), 45u);
    EXPECT_EQ(offsetof(PersonalMsg, format), 82u);
    EXPECT_EQ(offsetof(PersonalMsg, language), 86u);
    EXPECT_EQ(offsetof(PersonalMsg, content), 95u);
    EXPECT_EQ(sizeof(((PersonalMsg*)0)->content), 513u);
}

TEST(RecordLayout, VariableLengthRecordsPutTheirTailAfterTheHead) {
    EXPECT_EQ(offsetof(ChargingProfileChange, evseId), 41u);
    EXPECT_EQ(offsetof(ChargingProfileChange, value), 42u);
    EXPECT_EQ(offsetof(ChargingProfileChange, textLength), 46u);
}
