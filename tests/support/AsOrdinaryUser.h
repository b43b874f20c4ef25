// Takes a superuser's rights over the file system from this thread while it lives, so that modes
// are obeyed as they are for an ordinary user. Does nothing for an ordinary user.
#pragma once

#include <sys/fsuid.h>
#include <unistd.h>

class AsOrdinaryUser {
public:
    AsOrdinaryUser() : m_isSuperuser(geteuid() == 0) {
        if (m_isSuperuser) setfsuid(kNobody);
    }
    ~AsOrdinaryUser() {
        if (m_isSuperuser) setfsuid(0);
    }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

private:
    static constexpr uid_t kNobody = 65534;
    bool m_isSuperuser;
};
