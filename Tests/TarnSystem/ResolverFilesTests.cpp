#include "TarnSystem/ResolverFiles.h"

#include "Support/Words.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

constexpr auto networkManagerFile = "internal-1f2e3d4c-0000-1111-2222-333344445555-wl-p3s0.lease";

/// "DEVICE#INDEX ADDRESS SERVER... until TIME" for each lease.
std::string leases(std::string_view fileName, std::string_view text) {
    std::string result;
    for (const auto &lease : leasesInFile(fileName, text)) {
        result += (result.empty() ? "" : "; ") + lease.device + "#" + std::to_string(lease.linkIndex) + " " +
                  lease.address;
        for (const auto &server : lease.dnsServers)
            result += " " + server;
        result += lease.expires ? " until " + std::to_string(*lease.expires) : "";
    }
    return result;
}

TEST(ResolverFiles, NameServersOfResolvConf) {
    const auto servers = resolvConfServers(
        "# nameserver 1.1.1.1\n;nameserver 2.2.2.2\nsearch a.example\nnameserver 10.0.0.1\r\n"
        "nameserver\t fe80::1%eth0  # mine\nnameserver\nnameservers 3.3.3.3\n"
        " nameserver 4.4.4.4\nnameserver 10.0.0.2");
    EXPECT_EQ(servers, (std::vector<std::string>{"10.0.0.1", "fe80::1%eth0", "10.0.0.2"}));
    EXPECT_TRUE(resolvConfServers("").empty());
}

TEST(ResolverFiles, LeaseFilesAreKnownByTheirNames) {
    EXPECT_TRUE(isLeaseFile(networkManagerFile));
    for (const auto &name : words("2 117 dhclient.leases dhclient-1f2e--eth0.lease dhclient.eth0.leases"))
        EXPECT_TRUE(isLeaseFile(name)) << name;
    for (const auto &name : words("- . .. 0 -3 2.tmp 99999999999 timestamps NetworkManager.state "
                                  "internal-1f2e3d4c-eth0.lease "
                                  "internal-1f2e3d4c-0000-1111-2222-333344445555-.lease secret_key"))
        EXPECT_FALSE(isLeaseFile(name)) << name;
}

TEST(ResolverFiles, KeyedLeases) {
    constexpr auto text = "# This is private data. Do not parse.\nADDRESS=10.0.0.5\nNETMASK=255.255.255.0\n"
                          "ROUTER=10.0.0.1\nDNS=10.0.0.1 fd00::53\nDOMAINNAME=a.example\n";
    EXPECT_EQ(leases("3", text), "#3 10.0.0.5 10.0.0.1 fd00::53");
    EXPECT_EQ(leases(networkManagerFile, text), "wl-p3s0#0 10.0.0.5 10.0.0.1 fd00::53");
    for (const char *garbage : {"", "\n\n=\n", "DNS=10.0.0.1", "ADDRESS=", "ADDRESS=here\nDNS=10.0.0.1",
                                "#ADDRESS=10.0.0.5", "\xFF\xFE\x01"})
        EXPECT_EQ(leases("3", garbage), "") << garbage;
}

/// A dhclient lease for a device, with one more statement.
std::string block(const std::string &device, const std::string &address, const std::string &statement = "") {
    return "lease {\n  interface \"" + device + "\";\n  fixed-address " + address +
           ";\n  option routers 10.0.0.9;\n  filename \"a}\";\n  " + statement + "\n}\n";
}

TEST(ResolverFiles, DhclientKeepsTheLastLeaseOfEachInterface) {
    const auto file = "default-duid \"\\000\\001\";\n" + block("eth0", "10.0.0.5") +
                      block("eth1", "10.1.0.5", "option domain-name-servers 10.1.0.1, 10.1.0.2;") +
                      block("eth0", "10.0.0.6", "option domain-name-servers 10.0.0.1,10.0.0.2;");
    const std::string open = "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.7;\n";
    EXPECT_EQ(leases("dhclient.leases", file + open),
              "eth1#0 10.1.0.5 10.1.0.1 10.1.0.2; eth0#0 10.0.0.6 10.0.0.1 10.0.0.2");
    const std::string version6 =
        "lease6 {\n  interface \"eth0\";\n  ia-na x {\n  iaaddr fd00::5 {\n}\n}\n}\n";
    for (const auto &none : {block("", "10.0.0.5"), block("eth0", "here"), version6,
                             std::string("}\nlease {\n;;{{\n\"\n interface\n}")})
        EXPECT_EQ(leases("dhclient.leases", none), "") << none;
}

TEST(ResolverFiles, DhclientLeaseEndsWhenItSays) {
    for (const auto &row : rows("expire 4 2026/11/19 12:30:05 > 1795091405; "
                                "expire 4 2024/02/29 00:00:00 > 1709164800; expire 0 1970/1/1 00:00:00 > 0; "
                                "expire epoch 1795091405 > 1795091405; expire never > ; # no word of it > ; "
                                "renew 4 2026/11/19 12:30:05 > ; expire > ; expire epoch > ; "
                                "expire 4 2026/13/01 00:00:00 > ; expire 4 2026/11/x 00:00:00 > ; "
                                "expire 4 99999999999/1/1 1:1:1 > ")) {
        const auto &[statement, end] = sides(row);
        EXPECT_EQ(leases("dhclient.leases", block("eth0", "10.0.0.5", statement + "; # so it says")),
                  "eth0#0 10.0.0.5" + (end.empty() ? "" : " until " + end));
    }
}

} // namespace
} // namespace tarn
