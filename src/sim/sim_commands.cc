// The control commands of the chassis. Each row is one command; later parts of the chassis
// model add theirs the same way.

#include <functional>

#include "platform/limits.h"
#include "platform/number.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr uint32_t kMaxSlot = limits::kMaxSlot;

// A peer that can be told to refuse and to go absent, seen through four small functions.
struct Switchable {
    const char* word;  // "evh"
    const char* what;  // "the event handler 30.0"
    const char* refuseWhat;
    std::function<void(bool)> setRefusing;
    std::function<bool()> present;
    std::function<bool(std::string*)> open;
    std::function<void()> close;
};

void addSwitches(CommandTable& table, const Switchable& p) {
    table.add({std::string(p.word) + " refuse", "on|off",
               std::string("make ") + p.what + " refuse (on) or accept (off) " + p.refuseWhat, 1, 1,
               [p](const CommandTable::Args& args) {
                   bool on = false;
                   if (!parseOnOff(args[0], &on))
                       return refused("expected on or off, not '" + args[0] + "'");
                   p.setRefusing(on);
                   say("%s: now %s %s", p.word, on ? "refusing" : "accepting", p.refuseWhat);
                   return done(std::string(p.what) + " now " + (on ? "refuses " : "accepts ") +
                               p.refuseWhat);
               }});
    table.add({std::string(p.word) + " absent", "on|off",
               std::string("close (on) or reopen (off) the queues of ") + p.what, 1, 1,
               [p](const CommandTable::Args& args) {
                   bool on = false;
                   if (!parseOnOff(args[0], &on))
                       return refused("expected on or off, not '" + args[0] + "'");
                   if (on == !p.present())
                       return done(std::string(p.what) + " is already " +
                                   (on ? "absent" : "present"));
                   if (on) {
                       p.close();
                   } else {
                       std::string err;
                       if (!p.open(&err)) return refused(err);
                   }
                   say("%s: %s", p.word, on ? "absent (queues closed)" : "present again");
                   return done(std::string(p.what) + " is now " + (on ? "absent" : "present"));
               }});
}

}  // namespace

void ChassisSim::registerPeerCommands() {
    addSwitches(commands_,
                {"evh", "the event handler 30.0", "subscriptions",
                 [this](bool on) { evh_.setRefusing(on); }, [this] { return evh_.present(); },
                 [this](std::string* e) { return evh_.open(e); }, [this] { evh_.close(); }});
    addSwitches(commands_,
                {"l2pm", "L2PM 166.0", "registrations", [this](bool on) { l2pm_.setRefusing(on); },
                 [this] { return l2pm_.present(); },
                 [this](std::string* e) { return l2pm_.open(e); }, [this] { l2pm_.close(); }});
}

void ChassisSim::registerCommands() {
    commands_.add({"help", "", "list the commands", 0, 0,
                   [this](const CommandTable::Args&) { return done(commands_.helpText()); }});
    commands_.add({"status", "", "show the manager, the cards and every peer", 0, 0,
                   [this](const CommandTable::Args&) { return done(statusText()); }});
    commands_.add({"show agents", "",
                   "the line-card agents: registration, SWP state, what they hold, the rings "
                   "they run",
                   0, 0, nullptr, [this](const CommandTable::Args&) {
                       return shown(agentsText(), agentsJson());
                   }});
    commands_.add({"quit", "", "stop the manager (if vornsim started it) and vornsim", 0, 0,
                   [this](const CommandTable::Args&) {
                       requestStop("quit command");
                       return done("vornsim is stopping");
                   }});
    struct CardRow {
        const char* word;
        uint32_t eventId;
        const char* help;
    };
    for (const CardRow& r :
         {CardRow{"up", CHMGR_CARD_UP,
                  "a card comes up in SLOT (CHMGR_CARD_UP); a fresh agent starts and registers"},
          CardRow{"down", CHMGR_CARD_DOWN,
                  "the card in SLOT goes down (CHMGR_CARD_DOWN); its agent falls silent"},
          CardRow{"shutdown", CHMGR_CARD_SHUTDOWN,
                  "the card in SLOT is shut down (CHMGR_CARD_SHUTDOWN); its agent falls "
                  "silent"}}) {
        uint32_t id = r.eventId;
        commands_.add({std::string("card ") + r.word, "SLOT", r.help, 1, 1,
                       [this, id](const CommandTable::Args& args) { return cardEvent(id, args); }});
    }
}

std::string ChassisSim::evhAbsentText() {
    return "the event handler is absent ('evh absent off' brings it back); no event sent";
}

std::string ChassisSim::reachedText(int reached) {
    return reached == 0
               ? ": no subscriber follows it; nothing sent"
               : " sent to " + std::to_string(reached) + " subscriber" + (reached == 1 ? "" : "s");
}

CommandResult ChassisSim::cardEvent(uint32_t eventId, const CommandTable::Args& args) {
    uint32_t slot = 0;
    std::string err;
    if (!number::parse(args[0], 0, kMaxSlot, "slot", &slot, &err)) return refused(err);
    if (!evh_.present()) return refused(evhAbsentText());
    bool wasUp = (cardMask_ & (1u << slot)) != 0;
    bool up = eventId == CHMGR_CARD_UP;
    cardMask_ = up ? (cardMask_ | (1u << slot)) : (cardMask_ & ~(1u << slot));
    // A card that goes away takes its agent with it before anyone hears of it.
    std::string agentText = up ? "" : silenceAgent(slot);
    int reached = evh_.sendEvent(eventId, slot);
    std::string text = eventName(eventId) + " for slot " + std::to_string(slot);
    text += reachedText(reached);
    if (wasUp == up)
        text += std::string(" (slot ") + std::to_string(slot) +
                (up ? " was already up)" : " was already down)");
    // The card's ports follow: IFM tells the manager what they do.
    CommandResult ports = publish(up ? model_.cardUp(slot) : model_.cardDown(slot));
    if (up) {
        bool ok = false;
        agentText = startAgent(slot, &ok);
    }
    return done(text + "; " + ports.text + "; " + agentText);
}

std::string ChassisSim::startAgent(uint32_t slot, bool* ok) {
    std::optional<Agent>& a = agents_[slot];
    const std::string name = "agent 227." + std::to_string(slot);
    const bool made = !a;
    if (made) {
        a.emplace(slot);
        a->setRegistrationGate([this] { return attachedToServing_ || l2pm_.managerRegistered(); });
        wireAgent(*a);
    }
    const bool wasActive = a->active();
    std::string err;
    *ok = a->start(&err);
    if (made) loop_.add(&*a);
    if (!*ok) return name + " could not start: " + err;
    std::string text = name + (wasActive ? " started afresh" : " started");
    if (a->registering()) return text + ", registration sent to 226.0";
    return text + ", it registers once the manager 226.0 is up";
}

std::string ChassisSim::silenceAgent(uint32_t slot) {
    std::optional<Agent>& a = agents_[slot];
    const std::string name = "agent 227." + std::to_string(slot);
    if (!a || !a->active()) return "no agent ran in slot " + std::to_string(slot);
    a->silence();
    return name + " silenced: its queues are closed and it answers nothing";
}

}  // namespace vorn::sim
