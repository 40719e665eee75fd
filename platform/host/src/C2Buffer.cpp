// Host C2Buffer: a list of attached info records, at most one per index.
#include <C2Buffer.h>

std::shared_ptr<const C2Info> C2Buffer::getInfo(C2Param::Type index) const {
    for (const auto& info : mInfos) {
        if (static_cast<uint32_t>(info->index()) == static_cast<uint32_t>(index)) return info;
    }
    return nullptr;
}

c2_status_t C2Buffer::setInfo(const std::shared_ptr<C2Info>& info) {
    if (info == nullptr) return C2_BAD_VALUE;
    for (auto& attached : mInfos) {
        if (static_cast<uint32_t>(attached->index()) == static_cast<uint32_t>(info->index())) {
            attached = info;
            return C2_OK;
        }
    }
    mInfos.push_back(info);
    return C2_OK;
}

std::vector<std::shared_ptr<const C2Info>> C2Buffer::info() const {
    return mInfos;
}
