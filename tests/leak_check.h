#pragma once
// Test fixture that proves a test leaves nothing behind: the number of live laws and of
// live heap blocks must be the same after the test as before it.

#include <gtest/gtest.h>

#include <lawutil/lawutil.h>

class leak_checked : public ::testing::Test {
  protected:
    void SetUp() override {
        laws_ = law::live_laws();
        blocks_ = vorn_live_blocks();
        TEST_clear_error();
    }
    void TearDown() override {
        EXPECT_EQ(law::live_laws(), laws_) << "laws leaked";
        EXPECT_EQ(vorn_live_blocks(), blocks_) << "heap blocks leaked";
    }

  private:
    long laws_ = 0;
    long blocks_ = 0;
};

/// Runs `body`, expects it to raise the coded error `code`.
#define EXPECT_LAW_ERROR(body, code)                                      \
    do {                                                                  \
        try {                                                             \
            body;                                                         \
            ADD_FAILURE() << "no error raised by " #body;                 \
        } catch (const vorn_exception& e) {                               \
            EXPECT_EQ(e.error_number(), static_cast<err_mess_type>(code)) \
                << "raised " << e.what();                                 \
        }                                                                 \
    } while (0)
