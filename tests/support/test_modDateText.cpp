// Dates for machines: the catalogue's dd/MM/yyyy HH:mm:ss local times as ISO 8601 with the
// offset the local zone had at that moment, in zones east and west of UTC, in summer and
// winter; a text of another form comes back as it is.

#include "TestSupport.h"

#include "support/modDateText.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

#ifndef _WIN32
// The local zone is `zone` (a rule, so that no zone file is needed) while this lives.
class ScopedZone {
public:
    explicit ScopedZone(const char* zone) {
        if (const char* before = std::getenv("TZ")) m_before = before;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ScopedZone() {
        if (m_before)
            ::setenv("TZ", m_before->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }
    ScopedZone(const ScopedZone&) = delete;
    ScopedZone& operator=(const ScopedZone&) = delete;

private:
    std::optional<std::string> m_before;
};

TEST(IsoDateText, TheLocalTimeKeepsItsFieldsAndGainsTheOffsetItHadThen) {
    {
        const ScopedZone zone("UTC0");
        EXPECT_EQ(IsoDateText("26/11/2026 07:48:57"), "2026-11-26T07:48:57+00:00");
        EXPECT_EQ(IsoDateText("01/01/1970 00:00:00"), "1970-01-01T00:00:00+00:00");
        EXPECT_EQ(IsoDateText("29/02/2028 23:59:59"), "2028-02-29T23:59:59+00:00");
    }
    {
        const ScopedZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_EQ(IsoDateText("26/11/2026 07:48:57"), "2026-11-26T07:48:57+01:00");
        EXPECT_EQ(IsoDateText("01/07/2026 12:00:00"), "2026-07-01T12:00:00+02:00");
    }
    {
        const ScopedZone zone("EST5EDT,M3.2.0,M11.1.0");
        EXPECT_EQ(IsoDateText("26/11/2026 07:48:57"), "2026-11-26T07:48:57-05:00");
        EXPECT_EQ(IsoDateText("04/07/2026 09:30:00"), "2026-07-04T09:30:00-04:00");
    }
    {
        const ScopedZone zone("IST-5:30");
        EXPECT_EQ(IsoDateText("15/08/2026 18:00:00"), "2026-08-15T18:00:00+05:30");
    }
}
#endif

TEST(IsoDateText, ATextOfAnotherFormComesBackAsItIs) {
    for (const char* text : {"", "yesterday", "2026-11-26 07:48:57", "32/01/2026 00:00:00",
                             "26/13/2026 07:48:57", "26/11/2026 24:00:00", "26/11/2026 07:48:57x",
                             "26/11/2026 7:48:57", "6/11/2026 07:48:57 "})
        EXPECT_EQ(IsoDateText(text), text) << text;
}

TEST(IsoDateText, TheDateTextOfAMomentReadsBackAsThatMoment) {
    // 1,800,000,000 is 2027-01-15T08:00:00Z: whatever the zone, the local time less its offset
    // is 08:00 on some day.
    const std::string iso = IsoDateText(DateTimeText(1'800'000'000));
    ASSERT_EQ(iso.size(), 25u) << iso;
    EXPECT_EQ(iso.substr(16, 3), ":00") << iso;
    const int local = std::stoi(iso.substr(11, 2)) * 60 + std::stoi(iso.substr(14, 2));
    const int offset = (iso[19] == '-' ? -1 : 1) *
                       (std::stoi(iso.substr(20, 2)) * 60 + std::stoi(iso.substr(23, 2)));
    EXPECT_EQ(((local - offset - 8 * 60) % 1440 + 1440) % 1440, 0) << iso;
}

} // namespace
