// Events that a stage holds back, oldest first.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <vector>

namespace Tessel {

struct HeldEvent
{
    uint64_t Raw; // as it stands in the stream
    uint64_t Ps;  // the picosecond time of Raw
    uint8_t Channel;
};

// E1: the events that are held are events[head] to the last; head is 0 where there is none.
// E2: as long as `sorted` is set their times ascend.
class EventQueue
{
public:
    bool empty() const { return head == events.size(); }
    uint64_t size() const { return events.size() - head; }
    HeldEvent *begin() { return events.data() + head; }
    HeldEvent *end() { return events.data() + events.size(); }
    const HeldEvent *begin() const { return events.data() + head; }
    const HeldEvent *end() const { return events.data() + events.size(); }
    const HeldEvent &front() const { return events[head]; }

    void push(const HeldEvent &event)
    {
        if (!empty() && event.Ps < events.back().Ps) sorted = false;
        events.push_back(event);
    }

    // Room for `count` events at the end, in any order, which the caller fills.
    HeldEvent *grow(uint64_t count)
    {
        sorted = sorted && count == 0;
        events.resize(events.size() + count);
        return end() - count;
    }

    // Drops `count` events from the front. Their room is freed once they are most of the memory, so an event is
    // moved less than once on average.
    void drop(uint64_t count)
    {
        assert(count <= size());
        head += count;
        if (empty())
            clear();
        else if (head >= 1024 && head > events.size() / 2) {
            events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(head));
            head = 0;
        }
    }
    void dropLast(uint64_t count)
    {
        assert(count <= size());
        events.erase(events.end() - static_cast<std::ptrdiff_t>(count), events.end());
        if (empty()) clear();
    }
    void clear()
    {
        events.clear();
        head = 0;
        sorted = true;
    }

    // `position` points into the queue or to its end; the shorter side moves.
    void insert(HeldEvent *position, const HeldEvent &event)
    {
        if ((position != begin() && event.Ps < position[-1].Ps) ||
            (position != end() && position->Ps < event.Ps))
            sorted = false;
        if (head > 0 && position - begin() < end() - position) {
            std::move(begin(), position, begin() - 1);
            --head;
            position[-1] = event;
        } else {
            events.insert(events.begin() + (position - events.data()), event);
        }
    }

    // The first event whose time isn't below `ps`; in a queue out of order, a place before it.
    HeldEvent *from(uint64_t ps)
    {
        assert(holds());
        if (!sorted) return begin();
        return std::partition_point(begin(), end(), [ps](const HeldEvent &event) { return event.Ps < ps; });
    }

private:
    bool holds() const // E1, E2
    {
        const bool ascend = std::is_sorted(
            begin(), end(), [](const HeldEvent &left, const HeldEvent &right) { return left.Ps < right.Ps; });
        return head <= events.size() && (!empty() || head == 0) && (ascend || !sorted);
    }

    std::vector<HeldEvent> events;
    uint64_t head = 0;
    bool sorted = true;
};

} // namespace Tessel
