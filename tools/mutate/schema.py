"""Writes a source file with all its faults in it, each behind a question to the runtime."""

QUESTION = 'extern bool HolvFault(int);\n'


def asked(fault):
    return f'HolvFault({fault.id})'


def within(inner, outer):
    return outer.start <= inner.start and inner.end <= outer.end


class Schema:
    """The text of `source` with the faults, of which at most one is in effect at a time."""

    def __init__(self, source, faults):
        self.source = source
        expressions = [f for f in faults if not f.statement]
        self.spans = {}
        for fault in expressions:
            self.spans.setdefault((fault.start, fault.end), []).append(fault)
        # A statement asks whether it is dropped, and whether its neighbour stands in its place.
        self.slots = {}
        dropped = [f for f in faults if f.statement and f.kind == 'dropped']
        for fault in dropped:
            self.slots[(fault.start, fault.end)] = [(fault, ';')]
        for swap in (f for f in faults if f.kind == 'order'):
            pair = sorted(span for span in self.slots if swap.start == span[0] or swap.end == span[1])
            if len(pair) == 2:
                one, other = pair
                self.slots[one].append((swap, self.plain(*other)))
                self.slots[other].append((swap, self.plain(*one)))

    def plain(self, start, end):
        return self.source[start:end].decode()

    def text(self):
        # On the first line, so that lines keep their numbers but for that one.
        return QUESTION + self.render(0, len(self.source), top=True)

    def render(self, start, end, top=False):
        """The text from `start` to `end`: what stands there by itself, unless it is the top."""
        inner = [span for span in (*self.spans, *self.slots)
                 if start <= span[0] and span[1] <= end and (top or span != (start, end))]
        parts = []
        at = start
        for span in sorted(set(inner), key=lambda s: (s[0], -s[1])):
            if span[0] < at:
                continue  # within one that is rendered already
            parts.append(self.plain(at, span[0]))
            parts.append(self.slot(span) if span in self.slots else self.expression(span))
            at = span[1]
        parts.append(self.plain(at, end))
        return ''.join(parts)

    def expression(self, span):
        text = self.render(*span)
        for fault in self.spans[span]:
            # A condition may be of a class that only becomes a bool.
            new, text = (f'static_cast<bool>({t})' if fault.kind == 'condition' else f'({t})'
                         for t in (fault.new, text))
            text = f'({asked(fault)} ? {new} : {text})'
        return text

    def slot(self, span):
        text = '{ '
        for fault, instead in self.slots[span]:
            text += f'if ({asked(fault)}) {{ {instead} }} else '
        return text + '{ ' + self.render(*span) + ' } }'


def with_fault(source, fault):
    """The file as it would be written with the fault."""
    return (source[:fault.start].decode() + fault.new + source[fault.end:].decode())
