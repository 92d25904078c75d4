/*
 * Heads and claims as JSON.
 */
#include "fleet/store_head.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>
#include <random>

#include "tav/error.h"
#include "tav_base.h"

namespace fleet {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1;
constexpr size_t kChecksumDigits = 64;

std::string UserName() {
    std::array<char, 1024> buffer;
    passwd entry{}, *found = nullptr;
    const uid_t user = geteuid();
    return getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr
               ? found->pw_name
               : std::to_string(user);
}

std::string MachineName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "?";
}

}  // namespace

std::string PieceName(uint64_t slot, uint64_t piece) {
    return "copy." + std::to_string(slot) + "." + std::to_string(piece);
}

std::string PieceName(uint64_t slot) {
    return "copy." + std::to_string(slot) + ".*";
}

std::string Head::ToJson() const {
    Json json = {{"format", kFormat}, {"store", store},     {"generation", generation}, {"checksum", checksum},
                 {"bytes", bytes},    {"systems", systems}, {"records", records},       {"edits", edits}};
    if (copy) {
        json["copy"] = {{"sequence", copy->sequence}, {"pieces", copy->pieces}, {"slot", copy->slot}};
    }
    json["time"] = time;
    json["publisher"] = publisher;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Head ParseHead(std::string_view text, const std::string &place) {
    try {
        const Json json = Json::parse(text);
        if (json.at("format") != kFormat) {
            throw tav::Error(TAV_ERR_INVALID, place, "its head is of another format");
        }
        Head head{json.at("store"),   json.at("generation"), json.at("checksum"), json.at("bytes"),
                  json.at("systems"), json.at("records"),    json.at("edits"),    {},
                  json.at("time"),    json.at("publisher")};
        if (json.contains("copy")) {
            head.copy = CopyPlace{json["copy"].at("sequence"), json["copy"].at("pieces"), json["copy"].at("slot")};
        }
        if (head.checksum.size() != kChecksumDigits || head.generation == 0 || (head.copy && head.copy->pieces == 0)) {
            throw tav::Error(TAV_ERR_INVALID, place, "its head makes no sense");
        }
        return head;
    } catch (const Json::exception &) {
        throw tav::Error(TAV_ERR_INVALID, place, "its head is none");
    }
}

std::string Claim::ToJson() const {
    return Json({{"id", id}, {"who", who}}).dump(-1, ' ', false, Json::error_handler_t::replace);
}

Claim MakeClaim() {
    return {DrawLot(), "user " + UserName() + ", process " + std::to_string(getpid()) + " (" +
                           program_invocation_short_name + ") on " + MachineName() + ", since " + TimeNow()};
}

Claim ParseClaim(std::string_view text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || !json.contains("id") || !json["id"].is_string() || !json.contains("who") ||
        !json["who"].is_string()) {
        return {"", "somebody unknown"};
    }
    return {json["id"], json["who"]};
}

std::string DrawLot() {
    std::random_device device;
    std::string digits;
    for (int i = 0; i < 32; ++i) {
        digits += "0123456789abcdef"[device() % 16];
    }
    return digits;
}

std::string TimeNow() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace fleet
