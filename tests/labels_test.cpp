// Counter labels: the worked labels of the counted tables and the address formatters byte for byte,
// the catalog-driven cases of every counted table (tests/gen_label_cases.py), random records
// against each table's longest label, and labels of entries read back from the driver model, by
// table and by handle.
#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "label_cases.h"
#include "test_support.h"

namespace {

constexpr char kCanary = 0x7f;

// The text a writer leaves in a fresh buffer, after checking that the length it returned is the
// text's and that nothing follows the terminator.
std::string text(const std::function<int(char *)> &write) {
  char buf[512];
  std::memset(buf, kCanary, sizeof buf);
  int n = write(buf);
  if (n <= 0) {
    EXPECT_EQ(n, 0);
    return "";
  }
  EXPECT_EQ(size_t(n), std::strlen(buf));
  EXPECT_EQ(buf[n + 1], kCanary) << "nothing past the terminator";
  return std::string(buf, size_t(n));
}

// What a formatter that has nothing to show does: returns 0 and leaves the buffer alone.
void writes_nothing(const std::function<int(char *)> &write) {
  char buf[8];
  std::memset(buf, kCanary, sizeof buf);
  EXPECT_EQ(write(buf), 0);
  EXPECT_EQ(buf[0], kCanary);
}

// ---- The formatters ----

TEST(LabelFormatters, V4Addresses) {
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_v4addr_exact(b, "sip", 0x0a000001); }),
            "sip 10.0.0.1 ");
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_v4addr_exact(b, "a", 0xffffffff); }),
            "a 255.255.255.255 ");
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_v4addr_lpm(b, "dip", 0xc0a80100, 24); }),
            "dip 192.168.1.0/24 ");
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_v4addr_lpm(b, "dip", 0, 65535); }),
            "dip 0.0.0.0/65535 ");
  // The prefix of a ternary mask is its run of ones from bit 31 down, up to the first hole.
  struct {
    uint32_t mask;
    const char *want;
  } const ternary[] = {{0xffffff00, "dip 10.0.0.1/24 "}, {0xff00ff00, "dip 10.0.0.1/8 "},
                       {0x1, "dip 10.0.0.1/0 "},         {0xffffffff, "dip 10.0.0.1/32 "},
                       {0x80000000, "dip 10.0.0.1/1 "},  {0x7fffffff, "dip 10.0.0.1/0 "}};
  for (const auto &c : ternary)
    EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v4addr_ternary(b, "dip", 0x0a000001, c.mask); }),
              c.want)
        << std::hex << c.mask;
  writes_nothing([](char *b) { return p4_pd_corvin_switch__print_v4addr_ternary(b, "dip", 0x0a000001, 0); });
}

TEST(LabelFormatters, V6Addresses) {
  const uint8_t zero[16] = {};
  const uint8_t doc[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  const uint8_t mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 1, 2, 3};
  uint8_t ones[16];
  std::memset(ones, 0xff, sizeof ones);
  const uint8_t half[16] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  // No blank behind the exact form: the next fragment follows at once.
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_exact(b, "dip", zero); }), "dip ::");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_exact(b, "sip", doc); }), "sip 2001:db8::1");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_exact(b, "a", mapped); }),
            "a ::ffff:10.1.2.3");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_exact(b, "a", ones); }),
            "a ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_lpm(b, "dip", doc, 64); }),
            "dip 2001:db8::1/64 ");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_ternary(b, "dip", doc, half); }),
            "dip 2001:db8::1/ffff:ffff:ffff:ffff:: ");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_ternary(b, "dip", zero, doc); }),
            "dip ::/2001:db8::1 ");
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch__print_v6addr_ternary(b, "a", mapped, ones); }),
            "a ::ffff:10.1.2.3/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff ");
  writes_nothing([&](char *b) { return p4_pd_corvin_switch__print_v6addr_ternary(b, "dip", doc, zero); });
}

TEST(LabelFormatters, MacAddresses) {
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_mac_exact(b, "dmac", 0x112233, 0x445566); }),
            "dmac 1122.3344.5566 ");
  EXPECT_EQ(text([](char *b) { return p4_pd_corvin_switch__print_mac_exact(b, "smac", 0x0a0b0c, 0x000001); }),
            "smac 0a0b.0c00.0001 ");
  auto ternary = [](uint32_t om, uint32_t sm) {
    return text([=](char *b) { return p4_pd_corvin_switch__print_mac_ternary(b, "dmac", 0x112233, om, 0x445566, sm); });
  };
  EXPECT_EQ(ternary(0xffffff, 0xffffff), "dmac 1122.3344.5566 ");
  EXPECT_EQ(ternary(0xffff00, 0xffffff), "dmac 1122.3344.5566/ffff.00ff.ffff ");
  // Half the address masked: the other half's mask shows as zeros.
  EXPECT_EQ(ternary(0xffffff, 0), "dmac 1122.3344.5566/ffff.ff00.0000 ");
  EXPECT_EQ(ternary(0, 0xffffff), "dmac 1122.3344.5566/0000.00ff.ffff ");
  // A mask counts by the 24 bits of its half.
  EXPECT_EQ(ternary(0xffffffff, 0x01ffffff), "dmac 1122.3344.5566 ");
  writes_nothing([](char *b) { return p4_pd_corvin_switch__print_mac_ternary(b, "dmac", 0x112233, 0, 0x445566, 0); });
  writes_nothing([](char *b) {
    return p4_pd_corvin_switch__print_mac_ternary(b, "dmac", 0x112233, 0xff000000, 0x445566, 0x1000000);
  });
}

// ---- Labels of key records ----

template <class Record>
Record zeroed() {
  Record r;
  std::memset(&r, 0, sizeof r);
  return r;
}

using FinalDrop = p4_pd_corvin_switch_finalDropControl_match_spec_t;
using FinalDropIB = p4_pd_corvin_switch_finalDropControlIB_match_spec_t;
using Trap = p4_pd_corvin_switch_trapToCpu_match_spec_t;
using PortDrop = p4_pd_corvin_switch_egressPortDropCheck_match_spec_t;

std::string label(const FinalDrop &r) {
  return text([&](char *b) { return p4_pd_corvin_switch_finalDropControl_match_spec_stringify_for_counter(&r, b); });
}
std::string label(const FinalDropIB &r) {
  return text([&](char *b) { return p4_pd_corvin_switch_finalDropControlIB_match_spec_stringify_for_counter(&r, b); });
}
std::string label(const Trap &r) {
  return text([&](char *b) { return p4_pd_corvin_switch_trapToCpu_match_spec_stringify_for_counter(&r, b); });
}
std::string label(const PortDrop &r) {
  return text([&](char *b) { return p4_pd_corvin_switch_egressPortDropCheck_match_spec_stringify_for_counter(&r, b); });
}

TEST(CounterLabels, ExactKeysShowEveryFieldTernaryKeysOnlyTheirMaskedOnes) {
  auto sflow4 = zeroed<p4_pd_corvin_switch_egressSflowCacheIpv4_match_spec_t>();
  EXPECT_EQ(text([&](char *b) {
              return p4_pd_corvin_switch_egressSflowCacheIpv4_match_spec_stringify_for_counter(&sflow4, b);
            }),
            "Egress Port 0x00 egrL2Domain 0x0000 dip 0x00000000 sip 0x00000000 protocol 0x00 srcPort 0x0000 "
            "dstPort 0x0000 ");
  auto sflow6 = zeroed<p4_pd_corvin_switch_egressSflowCacheIpv6_match_spec_t>();
  EXPECT_EQ(text([&](char *b) {
              return p4_pd_corvin_switch_egressSflowCacheIpv6_match_spec_stringify_for_counter(&sflow6, b);
            }),
            "Egress Port 0x00 egrL2Domain 0x0000 dip ::sip ::nextHdr 0x00 srcPort 0x0000 dstPort 0x0000 ");
  // Every value set, no mask: a ternary key that matches anything has no label.
  p4_pd_corvin_switch_tcamRaclBank1_match_spec_t racl;
  std::memset(&racl, 0xff, sizeof racl);
  racl.tcamRaclKey_raclId_mask = racl.haloKeyOrig_isFrag_mask = racl.haloKeyOrig_flags_mask = 0;
  racl.ingMd_protocol_mask = 0;
  racl.tcamRaclKey_sip_mask = racl.tcamRaclKey_dip_mask = 0;
  racl.ingMd_srcPort_mask = racl.ingMd_dstPort_mask = 0;
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch_tcamRaclBank1_match_spec_stringify_for_counter(&racl, b); }),
            "");
  racl.haloKeyOrig_isFrag_mask = 1;
  EXPECT_EQ(text([&](char *b) { return p4_pd_corvin_switch_tcamRaclBank1_match_spec_stringify_for_counter(&racl, b); }),
            "isFrag ");
}

TEST(CounterLabels, FinalDropControl) {
  // Every mask the field's slice, every value 0: the port's blank, then the lone blank of
  // bestResult, then the drop flag whose label ends with a blank of its own.
  auto r = zeroed<FinalDrop>();
  r.ig_intr_md_ingress_port_mask = 0x7f;
  r.haloResultRow1_bestResult_mask = 0x38000;
  for (uint8_t *m :
       {&r.ingMd_drop_mask, &r.ingMd_dropSmac_mask, &r.ingMd_dropDmac_mask, &r.ingMd_invalidEgressPort_mask,
        &r.ingMd_samePortBridging_mask, &r.qosMd_pdpDrop_mask, &r.ingMd_routedMartian_mask, &r.ingMd_mlagPrune_mask,
        &r.egrMd_trapToCpu_mask, &r.ingMd_dropAgwVxlan_mask, &r.ingMd_dropDatalink_mask,
        &r.ingVlanStpCheck_stpBlocked_mask, &r.ingVlanStpCheck_invalidVlan_mask, &r.ingMd_dot1xDrop_mask,
        &r.ig_intr_md_for_tm_copy_to_cpu_mask, &r.ingMd_stormControlDrop_mask, &r.ingMd_bcast_mask,
        &r.ingMd_mcast_mask})
    *m = 1;
  r.ingMd_v4V6Valid_mask = 7;
  r.ingMd_tcamRaclResult_mask = 6;
  EXPECT_EQ(label(r),
            "Ingress Port 0x00  !Ingress Port Drop - See ingressPortDropCount  !dropSmac !dropDmac !invalidEgressPort "
            "!samePortBridging !pdpDrop !routedMartian !mlagPrune Invalid IP Version 0x0 !trapToCpu !dropAgwVxlan "
            "!Datalink !stpBlocked !invalidVlan !dot1xDrop TCAM RACL Drop+/Log & 0x6 0x0 "
            "!ig_intr_md_for_tm_copy_to_cpu !stormControlDrop !bcast !mcast ");

  // One field at a time.
  auto one = zeroed<FinalDrop>();
  one.ig_intr_md_ingress_port = 0x12;
  one.ig_intr_md_ingress_port_mask = 0x7f;
  one.ingMd_dropSmac = one.ingMd_dropSmac_mask = 1;
  EXPECT_EQ(label(one), "Ingress Port 0x12 dropSmac ");
  one = zeroed<FinalDrop>();
  one.ig_intr_md_ingress_port = 0x1ff;  // shown under the slice 0x7f, with the mask the member holds
  one.ig_intr_md_ingress_port_mask = 0x1ff;
  EXPECT_EQ(label(one), "Ingress Port & 0x1ff 0x7f ");

  // bestResult, slice 0x38000: D 5, F 7.
  struct {
    uint32_t v, m;
    const char *want;
  } const best[] = {
      {0x38000, 0x38000, "PACL/RACL Drop+/Log  "},
      {0x3ffff, 0x38000, "PACL/RACL Drop+/Log  "},
      {0x07fff, 0x38000, " "},                            // nothing of the slice under the mask
      {0x38000, 0x8000, "bestResult & 0x8000 0x38000 "},  // the value shown whole under the slice
      {0x18000, 0xffffffff, "bestResult & 0xffffffff 0x18000 "},
      {0, 7, "bestResult 0x00000 "},
      {0x38000, 7, "bestResult 0x38000 "},
      {0x38000, 3, "bestResult & 0x3 0x38000 "},
      {0x38000, 0, ""},
  };
  for (const auto &c : best) {
    one = zeroed<FinalDrop>();
    one.haloResultRow1_bestResult = c.v;
    one.haloResultRow1_bestResult_mask = c.m;
    EXPECT_EQ(label(one), c.want) << std::hex << c.v << "/" << c.m;
  }

  // tcamRaclResult, slice 0x6: D 1, F 3, so the mask 3 is the whole one and the slice's own is not.
  struct {
    uint8_t v, m;
    const char *want;
  } const racl[] = {{7, 3, "TCAM RACL Drop+/Log 0x6 "},
                    {7, 6, "TCAM RACL Drop+/Log & 0x6 0x6 "},
                    {1, 1, "TCAM RACL Drop+/Log & 0x1 0x0 "},
                    {7, 0, ""}};
  for (const auto &c : racl) {
    one = zeroed<FinalDrop>();
    one.ingMd_tcamRaclResult = c.v;
    one.ingMd_tcamRaclResult_mask = c.m;
    EXPECT_EQ(label(one), c.want) << int(c.v) << "/" << int(c.m);
  }

  // A flag counts bit 0 alone, of the mask and of the value.
  one = zeroed<FinalDrop>();
  one.ingMd_bcast = 0xfe;
  one.ingMd_bcast_mask = 0xff;
  one.ingMd_mcast = 1;
  one.ingMd_mcast_mask = 0xfe;
  EXPECT_EQ(label(one), "!bcast ");
}

TEST(CounterLabels, FinalDropControlIB) {
  auto r = zeroed<FinalDropIB>();
  // The whole 9-bit port: D 3, F 0x1ff.
  r.ig_intr_md_ingress_port = 0x1ff;
  r.ig_intr_md_ingress_port_mask = 0x1ff;
  EXPECT_EQ(label(r), "Ingress Port 0x1ff ");
  r.ig_intr_md_ingress_port_mask = 0x7f;
  EXPECT_EQ(label(r), "Ingress Port & 0x7f 0x1ff ");

  struct {
    uint32_t v, m;
    const char *want;
  } const unresolved[] = {
      {511, 0x1fffff, "Invalid Port  "},
      {0xfe1ff, 0x1ff, "Invalid Port  "},  // named on the masked value
      {0x10000, 0x1fffff, " "},
      {0, 1, " "},
      {0x1ff, 0xff, "egrL2AintfUnresolved & 0xff 0x0001ff "},
      {0x1234, 0x1fffff, "egrL2AintfUnresolved 0x001234 "},
      {511, 0x200000, "egrL2AintfUnresolved & 0x200000 0x0001ff "},  // no mask bit in the field: no name
      {511, 0, ""},
  };
  for (const auto &c : unresolved) {
    r = zeroed<FinalDropIB>();
    r.egrMd_egrL2AintfUnresolved = c.v;
    r.egrMd_egrL2AintfUnresolved_mask = c.m;
    EXPECT_EQ(label(r), c.want) << std::hex << c.v << "/" << c.m;
  }

  struct {
    uint16_t v, m;
    const char *want;
  } const group[] = {{0x1234, 0, ""},
                     {0x0234, 0xf000, " "},
                     {0x1234, 0xf000, "mcast_grp_a & 0xf000 0x1234 "},
                     {5, 0xffff, "mcast_grp_a 0x0005 "}};
  for (const auto &c : group) {
    r = zeroed<FinalDropIB>();
    r.ig_intr_md_for_tm_mcast_grp_a = c.v;
    r.ig_intr_md_for_tm_mcast_grp_a_mask = c.m;
    EXPECT_EQ(label(r), c.want) << std::hex << c.v << "/" << c.m;
  }

  // Flags of wider fields count bit 0 alone; the routed flag's label ends with a blank of its own.
  r = zeroed<FinalDropIB>();
  r.egrMd_routed_mask = 1;
  r.bfdOffload_detectMultEq = 0xfe;
  r.bfdOffload_detectMultEq_mask = 0xff;
  r.bfdOffload_myDiscriminatorEq = 0xffffffff;
  r.bfdOffload_myDiscriminatorEq_mask = 0x80000001;
  EXPECT_EQ(label(r), "!Routed Drop  !detectMultEq myDiscriminatorEq ");
  r.bfdOffload_detectMultEq = 1;
  r.bfdOffload_myDiscriminatorEq_mask = 0xfffffffe;
  EXPECT_EQ(label(r), "!Routed Drop  detectMultEq ");
}

TEST(CounterLabels, TrapToCpuNamesItsValuesUnderAnyMask) {
  struct {
    uint16_t v, m;
    const char *want;
  } const ether[] = {{0x800, 0xffff, "IPv4 "},  {0x806, 0xffff, "etherType 0x0806 "},          {0x806, 0xff00, "IPv4 "},
                     {0x86dd, 0xffff, "IPv6 "}, {0x1234, 0x0ff0, "etherType & 0xff0 0x1234 "}, {0x800, 0, ""}};
  for (const auto &c : ether) {
    auto r = zeroed<Trap>();
    r.ingMd_etherType = c.v;
    r.ingMd_etherType_mask = c.m;
    EXPECT_EQ(label(r), c.want) << std::hex << c.v << "/" << c.m;
  }

  struct {
    uint8_t v, m;
    const char *want;
  } const protocol[] = {{2, 0xff, "IGMP "},
                        {6, 0xff, "TCP "},
                        {17, 0xff, "UDP "},
                        {58, 0xff, "ICMPv6 "},
                        {89, 0xff, "OSPF "},
                        {103, 0xff, "PIM "},
                        {112, 0xff, "VRRP "},
                        {0x16, 0x0f, "TCP "},
                        {1, 0xff, "protocol 0x01 "},
                        {6, 0x7f, "TCP "},
                        {0x11, 0x0f, "protocol & 0xf 0x11 "},
                        {6, 0, ""}};
  for (const auto &c : protocol) {
    auto r = zeroed<Trap>();
    r.ingMd_protocol = c.v;
    r.ingMd_protocol_mask = c.m;
    EXPECT_EQ(label(r), c.want) << int(c.v) << "/" << int(c.m);
  }

  struct {
    uint8_t v, m;
    const char *want;
  } const decap[] = {{0, 7, "NoDecap "},
                     {1, 7, "VxLanDecap "},
                     {2, 7, "CPU-to-Port "},
                     {3, 7, "CPU-to-VLAN "},
                     {4, 7, "decapType 0x4 "},
                     {6, 3, "CPU-to-Port "},
                     {5, 4, "decapType & 0x4 0x5 "},
                     {2, 8, "decapType & 0x8 0x2 "},
                     {2, 0, ""}};
  for (const auto &c : decap) {
    auto r = zeroed<Trap>();
    r.egrMd_decapType = c.v;
    r.egrMd_decapType_mask = c.m;
    EXPECT_EQ(label(r), c.want) << int(c.v) << "/" << int(c.m);
  }

  struct {
    uint8_t v, m;
    const char *want;
  } const reason[] = {{16, 0xff, "VxLan Arp "},
                      {18, 0xff, "ISIS "},
                      {17, 0xff, "cpuReasonCode 0x11 "},
                      {0x32, 0x1f, "ISIS "},
                      {16, 0, ""}};
  for (const auto &c : reason) {
    auto r = zeroed<Trap>();
    r.egrMd_cpuReasonCode = c.v;
    r.egrMd_cpuReasonCode_mask = c.m;
    EXPECT_EQ(label(r), c.want) << int(c.v) << "/" << int(c.m);
  }

  // Two fields labelled "dip": the IPv4 one dotted with its prefix, the IPv6 one with its whole
  // mask, beyond the key's slice; the ARP header's validity never shows.
  auto r = zeroed<Trap>();
  r.ingIpv4_dip = 0x0a000001;
  r.ingIpv4_dip_mask = 0xffffff00;
  r.ingIpv6_dip[0] = 0x20;
  r.ingIpv6_dip[1] = 0x01;
  r.ingIpv6_dip[15] = 1;
  std::memset(r.ingIpv6_dip_mask, 0xff, sizeof r.ingIpv6_dip_mask);
  r.arpHdr_valid = r.arpHdr_valid_mask = 1;
  r.ingMd_cpuMemberOfIngressVlan = r.ingMd_cpuMemberOfIngressVlan_mask = 1;
  EXPECT_EQ(label(r), "dip 10.0.0.1/24 dip 2001::1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff CPUinVLan ");
  r.ingIpv4_dip_mask = 0xff00ff00;
  std::memset(r.ingIpv6_dip_mask, 0, sizeof r.ingIpv6_dip_mask);
  EXPECT_EQ(label(r), "dip 10.0.0.1/8 CPUinVLan ");
  r.ingIpv4_dip_mask = 0;
  EXPECT_EQ(label(r), "CPUinVLan ");

  // The words of the system's own example.
  r = zeroed<Trap>();
  r.ingMd_etherType = 0x800;
  r.ingMd_etherType_mask = 0xffff;
  r.ingMd_bcast_mask = 1;
  r.ingMd_protocol = 6;
  r.ingMd_protocol_mask = 0xff;
  EXPECT_EQ(label(r), "IPv4 !bcast TCP ");
}

TEST(CounterLabels, EgressPortDropCheck) {
  struct {
    uint8_t v, m;
    const char *want;
  } const racl[] = {{2, 7, "Egress TCAM ACL Drop "},
                    {6, 3, "Egress TCAM ACL Drop "},
                    {3, 7, "egrTcamRaclResult 0x3 "},
                    {2, 8, "egrTcamRaclResult & 0x8 0x2 "},
                    {2, 0, ""}};
  for (const auto &c : racl) {
    auto r = zeroed<PortDrop>();
    r.egrMd_egrTcamRaclResult = c.v;
    r.egrMd_egrTcamRaclResult_mask = c.m;
    r.outerIpv4Hdr_valid = r.outerIpv4Hdr_valid_mask = 1;  // hidden whatever it holds
    EXPECT_EQ(label(r), c.want) << int(c.v) << "/" << int(c.m);
  }
  // The port's slice 0x7f is the whole mask; the field's width is not.
  auto r = zeroed<PortDrop>();
  r.eg_intr_md_egress_port = 0x105;
  r.eg_intr_md_egress_port_mask = 0x7f;
  r.outerIpv4Hdr_ttl = 1;
  r.outerIpv4Hdr_ttl_mask = 0xff;
  r.egrMd_routed_mask = 1;
  EXPECT_EQ(label(r), "Egress Port 0x05 ttl 0x01 !routed ");
  r.eg_intr_md_egress_port_mask = 0x1ff;
  EXPECT_EQ(label(r), "Egress Port & 0x1ff 0x05 ttl 0x01 !routed ");
}

TEST(CounterLabels, DestinationMacClassification) {
  auto r = zeroed<p4_pd_corvin_switch_l2DmacClassify_match_spec_t>();
  r.ig_intr_md_ingress_port = 0x12;
  r.outerEthHdr_dmacOui = 0x112233;
  r.outerEthHdr_dmacStation = 0x445566;
  auto l = [&] {
    return text([&](char *b) { return p4_pd_corvin_switch_l2DmacClassify_match_spec_stringify_for_counter(&r, b); });
  };
  r.outerEthHdr_dmacOui_mask = r.outerEthHdr_dmacStation_mask = 0xffffff;
  EXPECT_EQ(l(), "Ingress Port 0x12 dmac 1122.3344.5566 ");
  r.outerEthHdr_dmacOui_mask = 0xffff00;
  EXPECT_EQ(l(), "Ingress Port 0x12 dmac 1122.3344.5566/ffff.00ff.ffff ");
  r.outerEthHdr_dmacOui_mask = 0xffffff;
  r.outerEthHdr_dmacStation_mask = 0;
  EXPECT_EQ(l(), "Ingress Port 0x12 dmac 1122.3344.5566/ffff.ff00.0000 ");
  r.outerEthHdr_dmacOui_mask = 0;
  EXPECT_EQ(l(), "Ingress Port 0x12 ");
}

TEST(CounterLabels, EveryCountedTableByItsCatalogCases) {
  for (size_t i = 0; i < kLabelCaseCount; ++i) {
    const LabelCase &c = kLabelCases[i];
    EXPECT_EQ(text(c.label), c.want) << c.name;
  }
}

// Random records of every counted table, all bits of every member: the label stays within the
// longest its fragments can make, its length is returned, and a label ends with a blank.
TEST(CounterLabels, RandomRecordsStayWithinTheLongestLabel) {
  std::mt19937 rng(20261124);
  for (size_t i = 0; i < kCountedTableCount; ++i) {
    const CountedTable &t = kCountedTables[i];
    SCOPED_TRACE(t.name);
    std::vector<uint8_t> rec(t.record_bytes);
    std::vector<char> buf(t.bound + 64);
    size_t longest = 0;
    for (int k = 0; k < 2000; ++k) {
      for (uint8_t &b : rec) b = k % 2 == 0 || rng() % 4 == 0 ? static_cast<uint8_t>(rng()) : 0;  // or mostly 0
      std::fill(buf.begin(), buf.end(), kCanary);
      int n = t.label(rec.data(), buf.data());
      ASSERT_GE(n, 0);
      ASSERT_LE(size_t(n), t.bound);
      ASSERT_EQ(buf[t.bound + 1], kCanary);
      if (n == 0) continue;
      ASSERT_EQ(std::strlen(buf.data()), size_t(n));
      ASSERT_EQ(buf[n - 1], ' ') << buf.data();
      longest = std::max(longest, size_t(n));
    }
    EXPECT_GT(longest, 0u);
  }
}

// ---- Labels of entries the device holds ----

class EntryLabels : public cvtest::LibraryTest {};

constexpr uint32_t kTrapToCpu = 0x1000038;
constexpr uint32_t kL2Lookup = 0x100002c;

TEST_F(EntryLabels, AnEntryAddedThroughTheLibraryIsReadFromTheDevice) {
  auto k = zeroed<Trap>();
  k.ingMd_etherType = 0x806;  // read back under its mask: 0x800
  k.ingMd_etherType_mask = 0xff00;
  k.ingMd_bcast_mask = 1;
  k.ingMd_protocol = 6;
  k.ingMd_protocol_mask = 0xff;
  uint32_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_trapToCpu_table_add_with_NoAction(kSess, kTgt, &k, 10, &h), 0u);
  drvm_clear_calls();
  char buf[256];
  std::memset(buf, kCanary, sizeof buf);
  ASSERT_EQ(p4_pd_corvin_switch_trapToCpu_stringify_counter_match_spec(kSess, uint8_t(kTgt.device_id), h, buf), 16);
  EXPECT_STREQ(buf, "IPv4 !bcast TCP ");
  const drvm_call_t *c = drvm_last_call("pipe_mgr_get_entry");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->tbl_hdl, kTrapToCpu);
  EXPECT_EQ(c->ent_hdl, h);
  EXPECT_EQ(c->arg_u32[0], 1u) << "read from the hardware";
  std::memset(buf, kCanary, sizeof buf);
  EXPECT_EQ(p4_pd_corvin_switch_stringify_counter_matchspec(kSess, uint8_t(kTgt.device_id), kTrapToCpu, h, buf), 16);
  EXPECT_STREQ(buf, "IPv4 !bcast TCP ");
}

TEST_F(EntryLabels, AFailedReadGivesNoLabel) {
  char buf[64];
  std::memset(buf, kCanary, sizeof buf);
  EXPECT_EQ(p4_pd_corvin_switch_trapToCpu_stringify_counter_match_spec(kSess, uint8_t(kTgt.device_id), 12345, buf), 0);
  EXPECT_EQ(p4_pd_corvin_switch_stringify_counter_matchspec(kSess, uint8_t(kTgt.device_id), kTrapToCpu, 12345, buf), 0);
  EXPECT_EQ(buf[0], kCanary);
  // An exact table, whose label is never empty, and a driver that refuses the reading.
  p4_pd_corvin_switch_tcamRaclId_match_spec_t k = {0x123};
  p4_pd_corvin_switch_setTcamRaclId_action_spec_t a;
  std::memset(&a, 0, sizeof a);
  uint32_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_tcamRaclId_table_add_with_setTcamRaclId(kSess, kTgt, &k, &a, &h), 0u);
  drvm_fail_next("pipe_mgr_get_entry", BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_corvin_switch_tcamRaclId_stringify_counter_match_spec(kSess, uint8_t(kTgt.device_id), h, buf), 0);
  EXPECT_EQ(buf[0], kCanary);
  EXPECT_EQ(p4_pd_corvin_switch_tcamRaclId_stringify_counter_match_spec(kSess, uint8_t(kTgt.device_id), h, buf), 18);
  EXPECT_STREQ(buf, "ingL3Aintf 0x0123 ");
}

TEST_F(EntryLabels, TheDispatcherReachesEveryCountedTableByItsHandle) {
  for (size_t i = 0; i < kCountedTableCount; ++i) {
    const CountedTable &t = kCountedTables[i];
    SCOPED_TRACE(t.name);
    uint32_t h = 0;
    ASSERT_EQ(t.add(kSess, kTgt, &h), 0u);
    drvm_clear_calls();
    EXPECT_EQ(text([&](char *b) {
                return p4_pd_corvin_switch_stringify_counter_matchspec(kSess, uint8_t(kTgt.device_id), t.handle, h, b);
              }),
              t.entry_label);
    const drvm_call_t *c = drvm_last_call("pipe_mgr_get_entry");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->tbl_hdl, t.handle);
    EXPECT_EQ(c->arg_u32[0], 1u);
  }
}

TEST_F(EntryLabels, EveryOtherHandleIsAMiss) {
  // An entry of a table without a counter label, under that table's handle.
  p4_pd_corvin_switch_l2Lookup_match_spec_t k = {0xaabb, 0xccdd, 0x123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x123};
  uint32_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &k, &a, &h), 0u);
  drvm_clear_calls();
  // l2Lookup's, zero, holes of both table ranges, a selector's, a profile's action data table's.
  for (uint32_t handle : {kL2Lookup, 0u, 0x1000002u, 0x10000a6u, 0x21010004u, 0x23010003u, 0x2201000eu}) {
    char buf[8];
    std::memset(buf, kCanary, sizeof buf);
    EXPECT_EQ(p4_pd_corvin_switch_stringify_counter_matchspec(kSess, uint8_t(kTgt.device_id), handle, h, buf), 0)
        << std::hex << handle;
    EXPECT_EQ(buf[0], kCanary);
  }
  EXPECT_EQ(drvm_call_count(), 0u) << "a miss reads nothing";
}

}  // namespace
