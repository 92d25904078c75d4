/*
 * Who serves a virtual system.
 */
#include "fleet/bus_services.h"

#include <cerrno>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string_view>
#include <utility>

#include "hosted/message.h"

namespace fleet {

namespace {

/** An announcement as it travels: the moment, a blank, the component. */
std::string TextOf(const Announcement &announcement) {
    return std::to_string(announcement.moment) + " " + std::to_string(announcement.componentId);
}

/** Reads an announcement. Returns false for what is none. */
bool ReadAnnouncement(std::string_view text, Announcement *announcement) {
    const char *const end = text.data() + text.size();
    const std::from_chars_result moment = std::from_chars(text.data(), end, announcement->moment);
    if (moment.ec != std::errc() || moment.ptr == end || *moment.ptr != ' ') {
        return false;
    }
    const std::from_chars_result id = std::from_chars(moment.ptr + 1, end, announcement->componentId);
    return id.ec == std::errc() && id.ptr == end && announcement->componentId != hosted::kNoComponent;
}

uint64_t Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

uint32_t BusServices::Serve(const ComponentName &component, uint32_t kind, uint32_t vr, uint32_t vsId) {
    const std::string service = ServiceSubject(component.prefix, kind, vr, vsId);
    uint64_t before = 0;
    uint32_t code = FindMoment(service, &before);
    if (code != 0) {
        return code;
    }
    const Announcement announcement{std::max(Now(), before + 1), component.id};
    code = Announce(service, component, announcement);
    if (code == 0) {
        code = TellOthers(service, announcement);
    }
    if (code != 0) {
        Drop(service, announcement);
    }
    return code;
}

/** Finds the moment of the announcement that counts now; 0 when there is none, or when its maker does not answer. */
uint32_t BusServices::FindMoment(const std::string &service, uint64_t *moment) {
    std::string answer;
    Announcement theirs;
    const uint32_t code = connection_.Ask(AskSubject(service), "", &answer);
    if (code == 0 && ReadAnnouncement(answer, &theirs)) {
        *moment = theirs.moment;
    }
    const std::lock_guard lock(mutex_);
    const auto own = services_.find(service);
    if (own != services_.end()) {
        *moment = std::max(*moment, own->second.announcement.moment);
    }
    return code == ENOENT || code == ETIMEDOUT ? 0 : code;
}

/** Answers questions about a service from now on. */
uint32_t BusServices::Announce(const std::string &service, const ComponentName &component,
                               const Announcement &announcement) {
    Service made{component, announcement, {}, {}};
    made.questions = connection_.Subscribe(AskSubject(service), "",
                                           [=, this](const natsMsg *question) { OnQuestion(service, question); });
    made.news =
        connection_.Subscribe(NewsSubject(service), "", [=, this](const natsMsg *news) { OnNews(service, news); });
    {
        const std::lock_guard lock(mutex_);
        Service &present = services_[service];
        if (present.announcement < announcement) {
            present = std::move(made);
        }
    }
    const uint32_t code = connection_.Settle(AskSubject(service));
    return code == 0 ? connection_.Settle(NewsSubject(service)) : code;
}

/** Lets who served before withdraw, unless its announcement is later than this one. */
uint32_t BusServices::TellOthers(const std::string &service, const Announcement &announcement) {
    std::string answer;
    Announcement theirs;
    const uint32_t code = connection_.Ask(NewsSubject(service), TextOf(announcement), &answer);
    if (code == 0 && ReadAnnouncement(answer, &theirs) && announcement < theirs) {
        Drop(service, announcement);
    }
    return code == ENOENT || code == ETIMEDOUT ? 0 : code;  // who does not answer now will do as it is told later
}

/** Withdraws an announcement of this process, unless a later one stands in its place. */
void BusServices::Drop(const std::string &service, const Announcement &announcement) {
    const std::lock_guard lock(mutex_);
    const auto own = services_.find(service);
    if (own != services_.end() && own->second.announcement <= announcement) {
        services_.erase(own);
    }
}

void BusServices::OnQuestion(const std::string &service, const natsMsg *question) {
    std::string answer;
    {
        const std::lock_guard lock(mutex_);
        const auto own = services_.find(service);
        answer = own != services_.end() ? TextOf(own->second.announcement) : "";
    }
    connection_.Answer(question, answer);
}

void BusServices::OnNews(const std::string &service, const natsMsg *news) {
    Announcement theirs;
    const std::string_view text(natsMsg_GetData(news), static_cast<size_t>(natsMsg_GetDataLength(news)));
    if (ReadAnnouncement(text, &theirs)) {
        Drop(service, theirs);
    }
    OnQuestion(service, news);
}

uint32_t BusServices::Find(const std::string &service, uint32_t *componentId) {
    {
        const std::lock_guard lock(mutex_);
        const auto own = services_.find(service);
        if (own != services_.end()) {
            *componentId = own->second.component.id;
            return 0;
        }
    }
    std::string answer;
    Announcement theirs;
    const uint32_t code = connection_.Ask(AskSubject(service), "", &answer);
    if (code != 0 || answer.empty()) {
        return code != 0 ? code : ENOENT;  // withdrawn just now
    }
    if (!ReadAnnouncement(answer, &theirs)) {
        return EINVAL;
    }
    *componentId = theirs.componentId;
    return 0;
}

void BusServices::Withdraw(const ComponentName &component) {
    const std::lock_guard lock(mutex_);
    std::erase_if(services_, [&](const auto &each) { return each.second.component == component; });
}

void BusServices::Renew() {
    std::map<std::string, Announcement> own;
    {
        const std::lock_guard lock(mutex_);
        for (const auto &[service, entry] : services_) {
            own[service] = entry.announcement;
        }
    }
    for (const auto &[service, announcement] : own) {
        TellOthers(service, announcement);
    }
}

}  // namespace fleet
