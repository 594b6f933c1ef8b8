// The floor for a SEL read over IPMI 2.0 LAN: one libfreeipmi session, Get SEL
// Info, then one Get SEL Entry per record from the first, following the
// next-record IDs until FFFFh. Nothing is decoded or written but the count, so
// the time this takes is what the BMC, the network and the session cost; a
// collector can only add to it.
//
//   bench_sel_walk HOST[:PORT] USER PASSWORD_FILE
//
// The session is opened as ipmisel-collect opens it with --workaround
// opensesspriv and its defaults: cipher suite 3, administrator privilege, a
// 10 s session timeout with the packet sent again every third of it.
#include <freeipmi/freeipmi.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace {

constexpr uint8_t kNetFnStorage = 0x0A;
constexpr uint8_t kGetSelInfo = 0x40;
constexpr uint8_t kGetSelEntry = 0x43;
constexpr unsigned kTimeoutMs = 10000;
constexpr unsigned kRetransmitMs = kTimeoutMs / 3;

int fail(ipmi_ctx_t ctx, const char* what) {
    std::fprintf(stderr, "bench_sel_walk: %s: %s\n", what, ipmi_ctx_errormsg(ctx));
    ipmi_ctx_close(ctx);
    ipmi_ctx_destroy(ctx);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: bench_sel_walk HOST[:PORT] USER PASSWORD_FILE\n");
        return 2;
    }
    std::string password;
    {
        std::ifstream file(argv[3]);
        if (!file) {
            std::fprintf(stderr, "bench_sel_walk: cannot read %s\n", argv[3]);
            return 2;
        }
        std::getline(file, password);
        if (!password.empty() && password.back() == '\r') {
            password.pop_back();
        }
    }

    ipmi_ctx_t ctx = ipmi_ctx_create();
    if (ctx == nullptr) {
        std::fprintf(stderr, "bench_sel_walk: cannot create a libfreeipmi context\n");
        return 1;
    }
    if (ipmi_ctx_open_outofband_2_0(ctx, argv[1], argv[2], password.c_str(), nullptr, 0,
                                    IPMI_PRIVILEGE_LEVEL_ADMIN, 3, kTimeoutMs, kRetransmitMs,
                                    IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE,
                                    IPMI_FLAGS_DEFAULT) < 0) {
        return fail(ctx, "cannot open the session");
    }

    // Answers start with the command byte and the completion code.
    uint8_t rs[64];
    const uint8_t info[] = {kGetSelInfo};
    int got = ipmi_cmd_raw(ctx, 0, kNetFnStorage, info, sizeof info, rs, sizeof rs);
    if (got < 4 || rs[1] != 0) {
        return fail(ctx, "Get SEL Info failed");
    }
    const unsigned entries = rs[3] | (rs[4] << 8);

    // Reservation 0000h, offset 0, the whole record (count FFh): what the
    // collector asks for too.
    uint8_t entry[] = {kGetSelEntry, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF};
    unsigned id = 0x0000;
    unsigned count = 0;
    while (entries != 0 && id != 0xFFFF && count <= 0xFFFF) {
        entry[3] = id & 0xFF;
        entry[4] = id >> 8;
        got = ipmi_cmd_raw(ctx, 0, kNetFnStorage, entry, sizeof entry, rs, sizeof rs);
        if (got < 4) {
            return fail(ctx, "Get SEL Entry failed");
        }
        if (rs[1] != 0) {
            std::fprintf(stderr, "bench_sel_walk: Get SEL Entry %04Xh answered %02Xh\n", id, rs[1]);
            ipmi_ctx_close(ctx);
            ipmi_ctx_destroy(ctx);
            return 1;
        }
        ++count;
        id = rs[2] | (rs[3] << 8);
    }
    ipmi_ctx_close(ctx);
    ipmi_ctx_destroy(ctx);
    std::printf("%u\n", count);
    return 0;
}
