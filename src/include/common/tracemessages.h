#pragma once

#include <cstdint>
#include <iterator>

#include "common/guid.h"

namespace wm {

enum class TraceLevel : std::uint8_t { error = 2, warning = 3, information = 4, verbose = 5 };

// A kind of message. Programs go by its number, which is never given to another one, and by its
// level; the text is for people and may be worded anew.
//
// Tracing that is kept on a machine for months is read by tools that know older versions: a message
// that is no longer sent leaves a gap, and one whose meaning changes gets a new number.
struct TraceId {
    std::uint16_t number;
    TraceLevel level;
    const char* text;
};

// The provider under which a host's tracing knows these messages.
inline constexpr ZEL::GUID traceProviderId = ZEL::MakeGuid("2EDA7F5B-B51E-4D6C-A9D4-CE298EA488D4");

// Every message of the component and its services. Each room has a hundred or fifty numbers of its
// own; a new message goes behind its room's last one. clang-format off
#define WM_TRACE_MESSAGES(MESSAGE)                                                               \
    /* The host services */                                                                      \
    MESSAGE(100, error, memoryExhausted, "memory is exhausted")                                  \
    MESSAGE(101, error, operationThrew, "an operation failed")                                   \
    MESSAGE(102, error, reportNotMade, "an error report can't be made")                          \
    MESSAGE(103, error, reportSinkThrew, "the sink of error reports threw")                      \
    MESSAGE(104, error, timerCallbackThrew, "a timer's callback threw")                          \
    MESSAGE(105, error, componentNotLoaded, "a component can't be loaded")                       \
    MESSAGE(106, warning, folderNameNotUtf8, "a folder's name is not UTF-8 and is passed over")  \
    MESSAGE(107, warning, settingNotReached, "a settings value can't be reached")                \
    MESSAGE(108, warning, notCounted, "what can't be read counts nothing")                       \
    /* The job manager */                                                                        \
    MESSAGE(150, error, jobRunEndedEarly, "a job's run ended early")                             \
    MESSAGE(151, error, jobThreadNotStarted, "the job manager's thread can't be started")        \
    MESSAGE(152, error, jobStatusNotTold, "a job's status can't be told")                        \
    MESSAGE(153, warning, jobStatusNotTaken, "a job's status was not taken")                     \
    /* Normalisation */                                                                          \
    MESSAGE(200, warning, usersNotRead, "the machine's users can't be read")                     \
    MESSAGE(201, warning, profilesNotListed, "the profiles can't be listed")                     \
    /* The schema */                                                                             \
    MESSAGE(300, error, keyFieldNotMade, "a key field can't be worked out")                      \
    MESSAGE(301, verbose, noKeyFields, "an event gives no key fields")                           \
    MESSAGE(302, warning, timeDoesNotExist, "a time does not exist")                             \
    /* The databases */                                                                          \
    MESSAGE(400, error, databaseNotOpened, "a database can't be opened")                         \
    MESSAGE(401, warning, databaseRefused, "a database is not opened")                           \
    MESSAGE(402, error, batchNotWritten, "a batch can't be written")                             \
    MESSAGE(403, error, recordNotRead, "a record can't be read")                                 \
    MESSAGE(404, error, walkMetDamage, "a walk met damaged data")                                \
    MESSAGE(405, error, databaseNotRemoved, "a database can't be destroyed")                     \
    MESSAGE(406, error, folderNotRemoved, "a folder can't be removed")                           \
    MESSAGE(407, warning, leftoverTakenAway, "what a kill left of a database is taken away")     \
    MESSAGE(408, error, dateNamesNoFolder, "a date can't name a folder")                         \
    MESSAGE(409, warning, scanEndFailed, "a scan's end failed")                                  \
    MESSAGE(410, error, databaseNotRead, "a database can't be read")                             \
    MESSAGE(411, warning, folderPassedOver, "a folder is passed over")                           \
    /* Queries */                                                                                \
    MESSAGE(500, error, subQueryNotReady, "a sub-query can't be made ready")                     \
    MESSAGE(501, warning, queryTimeNotUnicode, "a query's time is not Unicode")                  \
    MESSAGE(502, warning, queryEndNotUnicode, "a query's end is not Unicode and does not apply") \
    MESSAGE(503, information, noSuchQuery, "there is no such query")                             \
    MESSAGE(504, warning, keyWithoutTime, "a key has no time")                                   \
    MESSAGE(505, warning, receiveRowWithoutEvent, "a receive-time row has no event")             \
    MESSAGE(506, verbose, noEnrichments, "an event has no enrichments")                          \
    MESSAGE(507, error, enrichmentsNotJoined, "enrichments can't be joined")                     \
    MESSAGE(508, warning, eventWithoutBrace, "an event text has no closing brace")               \
    MESSAGE(509, error, resultNotMade, "a result can't be made")                                 \
    MESSAGE(510, error, resultNotAdded, "a result can't be added")                               \
    MESSAGE(511, warning, noResumePosition, "a row has no resume position")                      \
    MESSAGE(512, warning, resumeTimeNotUtf8, "a resume time is not UTF-8")                       \
    MESSAGE(513, warning, receiverFailed, "the receiver of results failed")                      \
    MESSAGE(514, warning, receiverFailedAtEnd, "the receiver of results failed at the end")      \
    /* The core */                                                                               \
    MESSAGE(600, error, storeNotMade, "the store can't be made")                                 \
    MESSAGE(601, error, startThrew, "starting the store threw")                                  \
    MESSAGE(602, error, eventNotMade, "an event can't be made")                                  \
    MESSAGE(603, error, flushTimerNotMade, "the flush timer can't be made")                      \
    MESSAGE(604, error, flushTimerNotStarted, "the flush timer can't be started")                \
    MESSAGE(605, warning, coordinatorRunsAlready, "the coordinator runs already")                \
    MESSAGE(606, error, coordinatorNotStarted, "the coordinator can't be started")               \
    MESSAGE(607, error, coordinatorWaitFailed, "the coordinator's wait failed")                  \
    MESSAGE(608, information, coordinatorEnds, "the coordinator ends")                           \
    MESSAGE(609, warning, recordNotQueued, "a record was not queued")                            \
    MESSAGE(613, error, batchLost, "a batch was not written")                                    \
    MESSAGE(614, error, noJobController, "there is no job controller")                           \
    MESSAGE(615, warning, jobNotStarted, "the job was not started")                              \
    MESSAGE(616, warning, noDatabase, "there is no database")                                    \
    MESSAGE(617, error, databaseErrorsNotRead, "the database errors can't be read")              \
    MESSAGE(618, warning, oldestDateNotTold, "the oldest date can't be told")                    \
    MESSAGE(619, warning, storeNotRunning, "the store is not running")                           \
    MESSAGE(620, information, purgeRunsAlready, "a purge is running")                            \
    MESSAGE(621, error, purgeNotStarted, "the purge can't be started")                           \
    MESSAGE(622, error, sizeLimitNotEnforced, "the size limit can't be enforced")                \
    MESSAGE(623, information, withinSizeLimit, "the store is within its size limit")             \
    MESSAGE(624, information, aboveSizeLimit, "the store stays above its size limit")            \
    /* The facade */                                                                             \
    MESSAGE(700, warning, unknownKeyKind, "an unknown kind of key was asked for")                \
    /* The disk monitor */                                                                       \
    MESSAGE(800, error, monitorNotStartedOrEnded, "the disk monitor can't be started or ended")  \
    MESSAGE(801, warning, monitorSettingsNotReached, "the monitor's settings can't be reached")  \
    MESSAGE(802, warning, volumeNotTold, "the data store's volume can't be told")                \
    MESSAGE(803, warning, freeSpaceNotTold, "free space can't be told")                          \
    MESSAGE(804, warning, subscriberWithoutIdentity, "a subscriber does not tell who it is")     \
    MESSAGE(805, warning, subscribedAlready, "a subscriber is subscribed already")               \
    MESSAGE(806, warning, notSubscribed, "a subscriber that is not subscribed was removed")      \
    /* The job controller */                                                                     \
    MESSAGE(900, warning, noJobManager, "there is no job manager")                               \
    MESSAGE(901, warning, jobEventNotMade, "a job's event can't be made")                        \
    MESSAGE(902, error, jobEventNotReset, "a job's event can't be reset")                        \
    MESSAGE(903, error, jobWaitFailed, "a wait for a job failed")                                \
    MESSAGE(904, warning, jobNotKnown, "the job manager does not know the job")                  \
    MESSAGE(905, warning, jobNameNotKnown, "the job manager knows no job of that name")          \
    MESSAGE(906, warning, jobWithoutId, "a job does not tell its identifier")                    \
    MESSAGE(907, warning, callbackNotTaken, "the job manager takes no callback")                 \
    MESSAGE(908, warning, jobWithoutStatus, "a job does not tell its status")                    \
    MESSAGE(909, warning, jobWithoutRuns, "a job does not tell of its runs")                     \
    MESSAGE(910, warning, statusWithoutJob, "a job's status names no job")                       \
    MESSAGE(911, verbose, statusOfAnotherJob, "the status of another job")                       \
    MESSAGE(912, verbose, jobDoesNotRun, "the job does not run")                                 \
    MESSAGE(913, warning, jobNotStopped, "a job can't be stopped")                               \
    MESSAGE(914, warning, jobRunNotStarted, "a job can't be started")                            \
    MESSAGE(915, warning, jobWithoutFlag, "a job does not tell whether it is enabled")           \
    MESSAGE(916, warning, jobFlagNotSet, "a job can't be enabled or disabled")                   \
    MESSAGE(917, warning, definitionNotRead, "a job's stored definition can't be read")          \
    MESSAGE(918, warning, definitionWithoutFlag, "a job's stored definition tells no flag")      \
    MESSAGE(919, warning, periodicScheduleNotSet, "a job's periodic schedule can't be changed")  \
    MESSAGE(920, warning, dailyTimeNotSet, "a job's daily time can't be changed")                \
    MESSAGE(921, warning, scheduleWindowNotSet, "a job's window can't be changed")
// clang-format on

namespace message {
#define WM_DEFINE_MESSAGE(number, level, name, text) \
    inline constexpr TraceId name{number, TraceLevel::level, text};
WM_TRACE_MESSAGES(WM_DEFINE_MESSAGE)
#undef WM_DEFINE_MESSAGE
}  // namespace message

// The whole table, by number. For a host that registers the provider's messages with its own
// tracing, and for tests.
inline constexpr TraceId traceMessages[] = {
#define WM_LIST_MESSAGE(number, level, name, text) message::name,
    WM_TRACE_MESSAGES(WM_LIST_MESSAGE)
#undef WM_LIST_MESSAGE
};

namespace detail {
// Ascending numbers are unique, too, which is what the rule is for.
constexpr bool NumbersAscend() noexcept {
    for (std::size_t i = 1; i < std::size(traceMessages); ++i) {
        if (traceMessages[i - 1].number >= traceMessages[i].number)
            return false;
    }
    return true;
}
}  // namespace detail
static_assert(detail::NumbersAscend(), "a number stands for one message");

}  // namespace wm
