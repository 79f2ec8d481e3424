# For gdb: prints GUIDs and the virtual PC's times as people write them, and stops at an instant of its day.
#
#   gdb -x tools/gdb.py --args build/debug/holvpc run --seed 7 scenarios/sleep_at_night.pc
#   (gdb) holv-until 2026-03-02 22:00
#   (gdb) run
#
# holv-until stops at the first platform call at or after that instant of the PC's clock, in the thread
# that makes the call. holv-clock tells the PC's time.
import datetime

import gdb
import gdb.printing

TICKS_A_SECOND = 10_000_000
EPOCH = datetime.datetime(1601, 1, 1)


class Guid:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        tail = "".join("%02X" % int(self.value["Data4"][i]) for i in range(8))
        return "{%08X-%04X-%04X-%s-%s}" % (int(self.value["Data1"]), int(self.value["Data2"]),
                                           int(self.value["Data3"]), tail[:4], tail[4:])


def calendar(ticks):
    """The calendar time of a count of 100-ns units since 1601."""
    moment = EPOCH + datetime.timedelta(microseconds=ticks // 10)
    return moment.isoformat(" ", "milliseconds")


class Ticks:
    """A duration, an instant since the PC was switched on, or a calendar time: all count 100-ns units."""

    def __init__(self, value):
        self.ticks = int(value["__r"])

    def to_string(self):
        if self.ticks == 2**63 - 1:
            return "never"
        if self.ticks > 300 * 365 * 86400 * TICKS_A_SECOND:
            return calendar(self.ticks)
        sign = "-" if self.ticks < 0 else ""
        span = datetime.timedelta(microseconds=abs(self.ticks) // 10)
        return "%s%s" % (sign, span)


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("holv")
    collection.add_printer("guid", r"^_?GUID$", Guid)
    collection.add_printer(
        "ticks", r"^std::chrono::duration<long, std::ratio<1l?, 10000000l?> ?>$", Ticks)
    return collection


gdb.printing.register_pretty_printer(None, printers(), replace=True)


class Until(gdb.Command):
    """holv-until DATE TIME: stop at the first platform call at or after this instant of the PC's clock."""

    def __init__(self):
        super().__init__("holv-until", gdb.COMMAND_BREAKPOINTS)

    def invoke(self, argument, from_tty):
        try:
            moment = datetime.datetime.fromisoformat(argument.strip())
        except ValueError:
            raise gdb.GdbError("holv-until needs a date and a time, as in: holv-until 2026-03-02 22:00")
        since = moment - EPOCH
        ticks = (since.days * 86400 + since.seconds) * TICKS_A_SECOND + since.microseconds * 10
        gdb.execute("set breakpoint pending on")
        gdb.execute("tbreak virtual_pc::Scheduler::Preempt"
                    " if m_now.__r + m_machine.m_switched_on_at.__r >= %d" % ticks)


class Clock(gdb.Command):
    """holv-clock: the time of the PC's clock."""

    def __init__(self):
        super().__init__("holv-clock", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        machine = gdb.parse_and_eval("(*'virtual_pc::(anonymous namespace)::g_machine')")
        ticks = int(machine["m_switched_on_at"]["__r"]) + int(machine["scheduler"]["m_now"]["__r"])
        print(calendar(ticks))


Until()
Clock()
