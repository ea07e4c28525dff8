"""What the comparisons are held to.

A goal holds for the comparisons whose name its pattern matches from the beginning, against the
reference of that name; the first that fits counts. "goal" is the ratio, or the number that is
counted, that is not to be exceeded. "or_ns" is an excess in nanoseconds that is good enough
whatever the ratio; "width" restricts a goal to one width. What fits none is shown for information.
"""
import re

GOALS = [
    # The speed of memory, or of the calls of the user's own code.
    {"name": r"row01/", "reference": "memcmp", "goal": 1.10},
    {"name": r"row02/", "reference": "bare loop", "goal": 1.15},
    # Equal stretches are skipped side by side, so the fewer entries differ, the less is left of the
    # loop; where all differ, or where each is asked for, no more than the loop and a check.
    {"name": r"row03/learning 0\.01 %", "reference": "bare loop", "goal": 0.08},
    {"name": r"row03/learning 1 %$", "reference": "bare loop", "goal": 0.4},
    {"name": r"row03/learning 100 %", "reference": "bare loop", "goal": 1.5},
    {"name": r"row03/learning 1 %, own", "reference": "bare loop", "goal": 1.2},
    # A few regions, or uneven ones, leave less to win.
    {"name": r"row04/.*( 16 regions$|uneven)", "reference": "std::map", "goal": 0.35},
    {"name": r"row04/.*( 16 regions$|uneven)", "reference": "absl::btree_map", "goal": 0.5},
    {"name": r"row04/", "reference": "std::map", "goal": 0.25},
    {"name": r"row04/", "reference": "absl::btree_map", "goal": 0.4},
    {"name": r"row05/", "reference": "inlined range check", "goal": 2.0},
    # One pass over the data, and the bits of the entries: hits leave those as they are. The copy
    # by hand is the faster one in 64 bits.
    {"name": r"row06/.*hits", "reference": "memcmp", "goal": 1.6},
    {"name": r"row06/.*misses", "reference": "memcmp + memcpy", "goal": 5, "width": 32},
    {"name": r"row06/.*misses", "reference": "memcmp + memcpy", "goal": 7, "width": 64},
    {"name": r"row07/shadowWrite.* 1 region$", "reference": "std::unordered_map", "goal": 1.5},
    {"name": r"row07/readFrom.* 1 region$", "reference": "std::unordered_map", "goal": 2.0},
    {"name": r"row07/shadowWrite", "reference": "std::unordered_map", "goal": 4},
    {"name": r"row07/readFrom", "reference": "std::unordered_map", "goal": 5},
    {"name": r"row08/", "reference": "memcpy", "goal": 1.15},
    # The registers take most of it: 2 to 3 ns around an access of 100.
    {"name": r"row09/", "reference": "register calls", "goal": 1.05},
    # One notifiee is no list: what is left is the check for it.
    {"name": r"row10/.* 1 notifiee", "reference": "sigc++", "goal": 0.4},
    {"name": r"row10/.* 8 notifiees", "reference": "sigc++", "goal": 0.6},
    {"name": r"row10/", "reference": "boost::signals2", "goal": 0.3},
    {"name": r"row10/", "reference": "boost::signals2 without locks", "goal": 0.35},
    {"name": r"row11/", "reference": "boost::intrusive_ptr", "goal": 1.05},
    {"name": r"row12/HashMap find, 1,000,000", "reference": "std::unordered_map", "goal": 1.2},
    {"name": r"row12/HashMap find", "reference": "std::unordered_map", "goal": 1.0},
    {"name": r"row12/RbTreeMap", "reference": "std::map", "goal": 1.1},
    {"name": r"row12/LinkQueue", "reference": "std::deque", "goal": 1.1},
    # A test of a byte, which a compiler may or may not hide behind the work beside it.
    {"name": r"row13/", "reference": "without it", "goal": 1.05, "or_ns": 0.5},
    {"name": r"row14/.*in a turn", "reference": "spdlog", "goal": 0.1},
    {"name": r"row14/.*outside", "reference": "spdlog", "goal": 0.2},
    {"name": r"row15/(?!.* 1,000 (audited )?regions$)", "reference": "sorted vector", "goal": 2},
    # Linear: one region may cost more only because the caches hold fewer of them; std::map's own
    # factor is 5 to 6.
    {"name": r"row15/", "reference": "one of 1,000 regions", "goal": 3.0},
    {"name": r"row15/", "reference": "one of 1,000 audited regions", "goal": 3.0},
    {"name": r"row16/one region beyond its buffers", "width": 32, "goal": 432},
    {"name": r"row16/one region beyond its buffers", "width": 64, "goal": 640},
    {"name": r"row16/one entry", "goal": 2},
    {"name": r"row17/", "goal": 0},
    {"name": r"row18/comparing turn", "reference": "memcmp", "goal": 1.1},
    {"name": r"row18/slice", "reference": "register calls", "goal": 1.05},
    # A copied slice takes less than the turn around it: 0.15 us for each.
    {"name": r"row19/.*copied, slices of 256$", "reference": "memcpy + memset + memcmp", "goal": 3},
    {"name": r"row19/.*copied", "reference": "memcpy + memset + memcmp", "goal": 1.6},
    {"name": r"row19/.*no cost", "reference": "register calls + memset + memcmp", "goal": 1.1},
    {"name": r"row19/.*slices of 64$", "reference": "register calls + memset + memcmp",
     "goal": 1.1},
    {"name": r"row19/", "reference": "register calls + memset + memcmp", "goal": 1.02},
    {"name": r"row20/.*slices of 64$", "reference": "registers x access", "goal": 1.1},
    {"name": r"row20/", "reference": "registers x access", "goal": 1.02},
    # A read and a write of 1 us each; one entry bears the whole pass.
    {"name": r"row21/pass in which 1 entries", "reference": "register calls", "goal": 3.5},
    {"name": r"row21/", "reference": "register calls", "goal": 2.5},
    # One notification for each read, none for a miss. Each hit is announced by itself.
    {"name": r"row22/.*one of another attribute", "reference": "no notifiee", "goal": 1.05},
    {"name": r"row22/", "reference": "no notifiee", "goal": 3},
    {"name": r"row22/", "reference": "1,024 announcements", "goal": 2},
    # A region has as many blocks, but also fills its buffers and takes its place in lists.
    {"name": r"row23/", "reference": "objects of six blocks", "goal": 1.5},
    {"name": r"row24/", "reference": "bare loop", "goal": 1.1},
    {"name": r"row24/leaving buffered", "reference": "copy + new store", "goal": 1.1},
    {"name": r"row24/unconfigured", "reference": "vector and map emptied", "goal": 2},
    {"name": r"row25/CPU of a wake-up", "goal": 7},
    {"name": r"row26/", "reference": "one of a module", "goal": 1.05},
    # 25 vectors are too many for the registers.
    {"name": r"row27/.*100-byte", "reference": "memcmp", "goal": 1.6},
    {"name": r"row27/", "reference": "memcmp", "goal": 1.3},
    # Where masked runs are short, the compared bits are loaded beside the images.
    {"name": r"row28/masked", "reference": "memcmp", "goal": 1.75},
    {"name": r"row28/", "reference": "memcmp", "goal": 1.1},
    # So they are here. Without a pattern that repeats, they come from memory.
    {"name": r"row29/.*scattered", "reference": "memcmp", "goal": 1.75},
    {"name": r"row29/", "reference": "memcmp", "goal": 1.5},
    {"name": r"row30/share", "goal": 0.2},
    {"name": r"row30/start to start", "goal": 0.1},
    {"name": r"row30/longest turn", "goal": 1.0},
    # A slice is a turn of its own; a difference is judged, counted for the quarantine and told.
    {"name": r"row31/.*equal", "reference": "plain audit", "goal": 1.25},
    {"name": r"row31/.*differ", "reference": "plain audit", "goal": 2},
    {"name": r"row31/.*learned", "reference": "plain audit", "goal": 5},
    # Some forty attributes are asked, each by a call; a line is formatted and handed to the system.
    {"name": r"row32/publishing", "reference": "memcpy", "goal": 40},
    {"name": r"row32/recording", "reference": "line in a file", "goal": 0.5},
    {"name": r"row32/write hits", "reference": "without it", "goal": 1.02, "or_ns": 0.5},
    {"name": r"row32/longest turn, 10,000 regions$", "goal": 100},
    {"name": r"row32/live view of 10,000 regions", "goal": 12 * 1024 * 1024},
    {"name": r"row33/one get", "reference": "one fixed line", "goal": 5},
    {"name": r"row33/longest turn", "goal": 100},
    {"name": r"row34/longest turn", "goal": 1.0},
]

# The literal loop takes its time for each entry, comparing and copying in one go for each byte: so
# many parts of the loop's time for each byte of an entry. Misses of 1, 2, 4 and 8 bytes are
# compared eight side by side; others one by one, with less around it than in the loop.
for entry_size in (1, 2, 3, 4, 8, 12, 16, 64):
    GOALS += [
        {"name": f"sizes/{what}, {entry_size}-byte", "reference": "literal loop", "goal": goal}
        for what, goal in (("comparison", round(0.01 * entry_size, 3)),
                           ("write hits", round(0.015 * entry_size, 4)),
                           ("read", round(0.0075 * entry_size, 4)),
                           ("write misses", 0.15 if entry_size in (1, 2, 4, 8) else 0.75))]

# Our side of the second comparison runs along with the first, as one more reference, "one of ...":
# both take their time for one region.
GROWTH = {
    f"row15/configured, {many}": f"row15/configured, {few}"
    for few, manys in (("1,000 regions", ("1,000,000 regions", "1,000,000 regions 4 KiB apart",
                                          "1,000,000 regions 64 KiB apart")),
                       ("1,000 audited regions", ("100,000 audited regions",
                                                  "1,000,000 audited regions",
                                                  "1,000,000 audited regions 4 KiB apart",
                                                  "1,000,000 audited regions 64 KiB apart",
                                                  "62,500 audited regions 4 KiB apart",
                                                  "62,500 audited regions 64 KiB apart")))
    for many in manys}

# What is counted one block at a time is the same each time: one repetition shows it.
COUNTED = r"row(17|30)/"


def grown_from(name):
    """What the reference is called that GROWTH adds."""
    return "one of " + name.split(", ", 1)[1]


def goal_of(name, width, reference):
    """The goal, {} if there is none; `reference` is None for what is counted."""
    for goal in GOALS:
        if (re.match(goal["name"], name) and goal.get("width", width) == width and
                goal.get("reference") == reference):
            return goal
    return {}
