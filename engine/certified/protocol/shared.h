// What the two sides of a machine share: settings, timers, and the order of what a step gives out.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certified/protocol/frame.h"
#include "certified/protocol/machine.h"
#include "certified/protocol/ranges.h"
#include "certified/protocol/timers.h"

namespace quorl::certified {

inline constexpr int64_t milliseconds = 1'000'000;
inline constexpr int64_t seconds = 1'000'000'000;

// Whose timer it is; the rest is theirs.
enum class Timing : uint64_t { storage, presence, expiry, transient, note, confirm, stream, source, pattern, announce };

// A pause that doubles up to a limit.
class Pause {
  public:
    constexpr Pause(int64_t first, int64_t longest) noexcept : first_(first), longest_(longest), next_(first) {}
    int64_t take() noexcept {
        const int64_t taken = next_;
        next_ = next_ > longest_ / 2 ? longest_ : 2 * next_;
        return taken;
    }
    void reset() noexcept { next_ = first_; }

  private:
    int64_t first_;
    int64_t longest_;
    int64_t next_;
};

// A message that a failed transaction would have stored.
struct NotStored {
    uint32_t subject = 0;
    uint64_t number = 0;
};

struct Shared {
    Shared(const Settings& given, const Chance& drawn);

    // ---- the step at hand
    void begin(Now time, Output& output) noexcept;
    // Gives the step's writes a token, and its messages their place behind them.
    void finish() noexcept;

    void putMessage(uint32_t subject, uint64_t number, int64_t expires, const companion::Message& message);
    // Takes back what was put last.
    void undoPutMessage() noexcept;
    void eraseMessages(uint32_t subject, uint64_t first, uint64_t last);
    void putState(std::string key, std::string value);
    void eraseState(std::string key);
    // The step's writes are to survive a power failure, whatever the ledger's level.
    void syncStep() noexcept { sync_ = true; }

    void sendNow(companion::Message message) { out->messages.push_back(std::move(message)); }
    // When everything that was written so far, in this step too, is safe; in the order of the calls.
    void sendWhenStored(companion::Message message) { ofStep_.push_back(std::move(message)); }
    void sendNow(const FrameWriter& frame, std::string_view to) { sendNow(messageWith(frame, to)); }
    void sendWhenStored(const FrameWriter& frame, std::string_view to) { sendWhenStored(messageWith(frame, to)); }

    void tell(Event::Kind kind, std::string_view name, std::string_view subject, uint64_t first = 0, uint64_t last = 0,
              const char* reason = "");
    void set(int64_t at, Timing timing, uint64_t which = 0) { timers.set(at, static_cast<uint64_t>(timing), which); }

    // ---- storage
    void persisted(uint64_t token);
    // Without memory nothing has changed, but for what notStored has got.
    void storageFailed(uint64_t token, quorl_status status);
    void tryStorage();
    // While storage does not work: tries it in this step. False: a try is on its way.
    bool tryNow();
    // What a send answers while storage does not work; QUORL_OK otherwise.
    quorl_status storageStatus() const noexcept { return status_; }

    Settings settings;
    Chance chance;
    std::string address;
    Timers timers;
    Now now;
    Output* out = nullptr;
    bool suspended = false;  // another program has the name
    bool settled = false;    // nobody objected to the name
    uint64_t foreign = 0;
    uint64_t incarnation = 0;          // of this machine as a sender
    std::vector<NotStored> notStored;  // messages that the sender is to take back

  private:
    struct Written {
        uint64_t token;
        Write::Kind kind;
        uint32_t subject = 0;
        uint64_t number = 0;
        uint64_t last = 0;
        std::string key;
        std::string value;
    };
    struct Waiting {
        uint64_t token;
        companion::Message message;
    };

    void keep(Write write);
    void keepForLater(const Write& write);
    bool giveOutRetry(bool probes);

    std::vector<companion::Message> ofStep_;
    bool sync_ = false;
    uint64_t lastToken_ = 0;
    uint64_t persisted_ = 0;
    std::deque<Written> written_;  // and not persisted yet
    std::deque<Waiting> waiting_;

    // While storage does not work: what has to be written when it does.
    quorl_status status_ = QUORL_OK;
    uint64_t retryToken_ = 0;  // of the try that is on its way; 0: none is
    int64_t retryAt_ = INT64_MAX;
    std::map<std::string, std::optional<std::string>> retryState_;
    std::vector<Write> retryErase_;
};

// One call: what it gives out is in order when it ends, however it ends.
class Step {
  public:
    Step(Shared& shared, Now now, Output& out) noexcept : shared_(shared) { shared_.begin(now, out); }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() { shared_.finish(); }

  private:
    Shared& shared_;
};

}  // namespace quorl::certified
