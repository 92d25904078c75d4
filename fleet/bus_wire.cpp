/*
 * What travels.
 */
#include "fleet/bus_wire.h"

#include <algorithm>
#include <cerrno>

#include "common/words.h"

namespace fleet {

namespace {

using common::SwapBytes;
using hosted::Envelope;

// What errno codes are called on the way: their numbers differ between kinds of machines.
constexpr struct {
    uint32_t code;
    std::string_view word;
} kWords[] = {
    {0, "taken"},       {EAGAIN, "full"},           {ENOMEM, "memory"},     {ENOENT, "nobody"},
    {EACCES, "sender"}, {EPROTONOSUPPORT, "order"}, {EBADMSG, "malformed"},
};

// As which the requests of ftpci and their replies travel, and where they tell their byte order.
constexpr uint8_t kTransferInterface = 1;
constexpr uint8_t kTransferSubInterface = 3;
constexpr size_t kFlagsAt = 2;
constexpr uint8_t kOtherOrderFlag = 0x04;

/** Brings an envelope of the other byte order into this one. */
void SwapEnvelope(Envelope *envelope) {
    envelope->magic = SwapBytes(envelope->magic);
    envelope->version = SwapBytes(envelope->version);
    envelope->sender = SwapBytes(envelope->sender);
    envelope->receiver = SwapBytes(envelope->receiver);
    envelope->code = SwapBytes(envelope->code);
}

bool IsTransfer(const Envelope &envelope) {
    return envelope.interfaceNumber == kTransferInterface && envelope.subInterfaceNumber == kTransferSubInterface;
}

/**
 * Marks a transfer message of the other byte order, which its reader converts but for the length in front. One that
 * bore the mark was on its way back, so to say: it is in this order.
 */
void MarkTransfer(std::string *content) {
    std::swap(content->at(0), content->at(1));
    content->at(kFlagsAt) = static_cast<char>(content->at(kFlagsAt) ^ kOtherOrderFlag);
}

uint32_t Judge(const Envelope &envelope, bool isForeign, uint32_t sender, uint32_t receiver) {
    if (envelope.magic != hosted::kEnvelopeMagic || envelope.version != hosted::kEnvelopeVersion ||
        envelope.receiver != receiver) {
        return EBADMSG;
    }
    if (envelope.sender != sender || sender == hosted::kNoComponent) {
        return EACCES;
    }
    return isForeign && !IsTransfer(envelope) ? EPROTONOSUPPORT : 0;
}

}  // namespace

std::string_view WordOf(uint32_t code) {
    const auto *const found =
        std::find_if(std::begin(kWords), std::end(kWords), [=](const auto &each) { return each.code == code; });
    return found != std::end(kWords) ? found->word : "malformed";
}

uint32_t CodeOfWord(std::string_view word) {
    const auto *const found =
        std::find_if(std::begin(kWords), std::end(kWords), [=](const auto &each) { return each.word == word; });
    return found != std::end(kWords) ? found->code : EPROTO;
}

std::string Pack(const Envelope &envelope, const void *content, uint32_t length) {
    std::string packed(sizeof(envelope) + length, '\0');
    common::StoreWord(envelope, packed.data());
    memcpy(packed.data() + sizeof(envelope), content, length);
    return packed;
}

Unpacked Unpack(std::string_view travelled, uint32_t sender, uint32_t receiver) {
    Unpacked unpacked;
    travelled.copy(reinterpret_cast<char *>(&unpacked.envelope), sizeof(Envelope));
    const bool isForeign = unpacked.envelope.magic == SwapBytes(hosted::kEnvelopeMagic);
    if (isForeign) {
        SwapEnvelope(&unpacked.envelope);
    }
    if (travelled.size() < sizeof(Envelope) + hosted::kMinMessage ||
        travelled.size() > sizeof(Envelope) + hosted::kMaxMessage) {
        unpacked.code = EBADMSG;
        return unpacked;
    }
    unpacked.code = Judge(unpacked.envelope, isForeign, sender, receiver);
    unpacked.content = travelled.substr(sizeof(Envelope));
    if (isForeign) {
        MarkTransfer(&unpacked.content);
    }
    return unpacked;
}

}  // namespace fleet
