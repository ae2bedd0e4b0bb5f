#include <arpa/inet.h>
#include <cstring>
#include <sodium.h>

#include "findhost/keys.h"
#include "lib/text.h"
#include "tools/norvfind/appliance.h"

// Opens a sealed packet. Returns its bytes, empty when it was not sealed to this process.
static std::vector<uint8_t> packet_open(const uint8_t *datagram, size_t length)
{
    if (length <= kFhostMagicBytes + kFhostSealBytes || !FHOSTProcessKeyIsSet())
        return {};
    std::vector<uint8_t> opened(length - kFhostMagicBytes - kFhostSealBytes);
    const uint8_t *secret_key = FHOSTProcessSecretKeyOpen();
    const bool is_ours = secret_key != nullptr &&
                         crypto_box_seal_open(opened.data(), datagram + kFhostMagicBytes, length - kFhostMagicBytes,
                                              FHOSTProcessPublicKey(), secret_key) == 0;
    FHOSTProcessSecretKeyClose();
    if (!is_ours)
        opened.clear();
    return opened;
}

static bool magic_is(const uint8_t *bytes, size_t length, const uint8_t (&magic)[kFhostMagicBytes])
{
    return length >= kFhostMagicBytes && memcmp(bytes, magic, kFhostMagicBytes) == 0;
}

static uint32_t number_of(const FhostElement &element)
{
    uint32_t number = 0;
    if (element.value.size() == sizeof(number))
        memcpy(&number, element.value.data(), sizeof(number)); // the wire is little-endian, as this machine is
    return number;
}

static void element_keep(const FhostElement &element, Appliance *out)
{
    const std::string text(element.value.begin(), element.value.end());
    switch (element.tag) {
    case PKT_ID_ERRCODE:
        out->result_code = number_of(element);
        break;
    case PKT_ID_PROGRESS:
        out->progress = number_of(element);
        break;
    case PKT_ID_MIGRATE_TYPE:
        out->migration = number_of(element);
        break;
    case PKT_ID_OLD_BUILD:
        out->old_build = number_of(element);
        break;
    case PKT_ID_SUPPORT_RAID:
        out->raid = number_of(element);
        break;
    case PKT_ID_OLD_VERSION:
        out->old_version = text;
        break;
    case PKT_ID_OLD_MODEL:
        out->old_model = text;
        break;
    default:
        break;
    }
}

bool appliance_parse(const uint8_t *datagram, size_t length, Appliance *out)
{
    std::vector<uint8_t> opened;
    if (magic_is(datagram, length, FHOST_MAGIC_SEALED)) {
        opened = packet_open(datagram, length);
        datagram = opened.data();
        length = opened.size();
        out->is_sealed = true;
    }
    if (!magic_is(datagram, length, FHOST_MAGIC_PLAIN) ||
        FHOSTParsePacket(length - kFhostMagicBytes, datagram + kFhostMagicBytes, &out->record) != 0 ||
        out->record.ulPktType != PKT_ID_PTYPE_REPLY || text_view(out->record.szMac).empty())
        return false;
    std::span<const uint8_t> rest(datagram + kFhostMagicBytes, length - kFhostMagicBytes);
    for (FhostElement element; fhost_element_take(&rest, &element);)
        element_keep(element, out);
    return true;
}

const char *status_words(uint32_t status)
{
    switch (status) {
    case 2:
        return "not installed";
    case 3:
        return "install running";
    case 4:
        return "system crashed";
    case 9:
        return "memory test";
    case 11:
        return "flash recoverable";
    case 14:
        return "migratable";
    default:
        return "unknown";
    }
}

const char *result_words(int64_t code)
{
    switch (code) {
    case kFhostDone:
        return "done";
    case kFhostRefused:
        return "refused, or it failed";
    case kFhostLocked:
        return "an install is running, or its lock cannot be made";
    default:
        return "unknown";
    }
}

std::string address_text(uint32_t address)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}
