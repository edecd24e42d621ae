#include "kovcert/qxci/qxci.h"

#include <gtest/gtest.h>

namespace {

TEST(QXCI, means_the_same_to_a_provider_in_c) {
    const a_qxci_version version = QXCIGetVersion();
    EXPECT_EQ(version.api_major, 1);
    EXPECT_EQ(version.api_minor, 7);
    EXPECT_EQ(version.impl_id, 0);
    EXPECT_EQ(version.impl_ver, 0x1234);
    a_qxci_env_iface iface = {};
    ASSERT_EQ(QXCIGetEnvIface(&iface), QXCI_OK);
    EXPECT_TRUE(iface.stream_alg_id_func(nullptr, QXCI_STREAM_RSA_TLS));
    EXPECT_FALSE(iface.stream_alg_id_func(nullptr, QXCI_STREAM_ECC_TLS));
}

}  // namespace
