"""Finds the faults that can be made in a source file, with libclang."""

import dataclasses
import re

from clang import cindex
from clang.cindex import CursorKind as K

# < has <= for its fault, and so on: the edge is what goes wrong.
COMPARISONS = {'==': '!=', '!=': '==', '<': '<=', '<=': '<', '>': '>=', '>=': '>'}
LOGIC = {'&&': '||', '||': '&&'}
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION,
             K.FUNCTION_TEMPLATE, K.LAMBDA_EXPR}
BRANCHES = {K.IF_STMT, K.WHILE_STMT, K.CONDITIONAL_OPERATOR, K.DO_STMT}
BODIES = {K.COMPOUND_STMT, K.IF_STMT, K.WHILE_STMT, K.FOR_STMT, K.CXX_FOR_RANGE_STMT, K.CASE_STMT,
          K.DEFAULT_STMT}
# What lies in these is not always done.
DEPENDS = BRANCHES | {K.FOR_STMT, K.CXX_FOR_RANGE_STMT, K.SWITCH_STMT, K.LAMBDA_EXPR}
COMPUTED_AT_BUILD = {K.FIELD_DECL, K.ENUM_DECL, K.PARM_DECL, K.TEMPLATE_NON_TYPE_PARAMETER}

# What makes no fault, because it changes nothing or nothing that the system promises. A call with one
# of these names is left as it is, with everything in it.
NO_PROMISE = {
    'Log': 'the lines of the log have tests of their own, word for word',
    'LogMessage': 'as Log',
    'LogEntry': 'as Log',
    'LogFailure': 'as Log',
    'RefuseNull': 'as Log',
    'reserve': 'spares an allocation, no more',
    'shrink_to_fit': 'spares memory, no more',
}

# Arguments of functions, by their places, whose next value means the same: a stack's size is rounded up; of
# a thread's flags and a key's options the first bit has no meaning; a message that ends a loop tells nothing
# else; of no input there is no length; some are reserved; and no window is ever shown.
NO_MEANING = {
    'CallNtPowerInformation': (2,),
    'CreateThread': (1, 4),
    'InitializeCriticalSectionAndSpinCount': (1,),
    'PostThreadMessageW': (2, 3),
    'RegCreateKeyExW': (2, 3),
    'RegOpenKeyExW': (2,),
    'RegQueryValueExW': (2,),
    'RegSetValueExW': (2,),
    'RunMessageLoop': (0,),
}

# Calls that hold or let go of an object, and change nothing else.
HOLDS = {'AddRef', 'Reset', 'SafeRelease'}

# How a clock is read. To what edge of its time something happens is no promise: of a time's comparison the
# fault is the opposite.
CLOCKS = re.compile(r'\b(?:GetTickCount64|Now|UtcNow)\(\)')
OPPOSITES = {'<': '>=', '<=': '>', '>': '<=', '>=': '<'}

# Whose two arguments may stand in either place.
SYMMETRIC = {'max', 'min', 'swap', 'memcmp', 'SameScheme', 'SameWord', 'IsEqualGUID', 'IsEqualIID', 'IsEqualCLSID'}


@dataclasses.dataclass
class Fault:
    """One fault: `old`, the bytes from `start` to `end`, becomes `new`."""

    kind: str
    start: int
    end: int
    old: str
    new: str
    line: int
    column: int
    at_build: bool = False  # in what the compiler computes: needs a build of its own
    statement: bool = False  # `start` to `end` is a whole statement, with its semicolon
    id: int = 0

    @property
    def change(self):
        return ' '.join(f'{self.old} => {self.new}'.split())

    @property
    def name(self):
        """The same from run to run, as long as the line stays where it is."""
        return f'{self.line}:{self.column} {self.kind}: {self.change}'


class Finder:
    """Walks over one file and collects its faults."""

    def __init__(self, path, arguments):
        self.path = str(path)
        self.text = path.read_bytes()
        unit = cindex.Index.create().parse(
            self.path, args=arguments,
            options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit(f'mutate: {self.path}: {errors[0]}')
        here = [c for c in unit.cursor.get_children()
                if c.location.file and c.location.file.name == self.path]
        self.macros = {c.extent.start.offset: c.spelling for c in here
                       if c.kind == K.MACRO_INSTANTIATION}
        self.faults = {}
        self.in_thread = False  # within the function that a thread runs
        self.filled = set()  # the function's variables that a call fills before they are read
        for cursor in here:
            if not cursor.kind.is_preprocessing():
                self.walk(cursor, at_build=True)

    def source(self, start, end):
        return self.text[start:end].decode()

    def of(self, node):
        return self.source(node.extent.start.offset, node.extent.end.offset)

    def add(self, kind, node, new, at_build, statement=False):
        start, end = node.extent.start.offset, node.extent.end.offset
        if statement:
            semicolon = re.compile(rb'\s*;').match(self.text, end)
            if not semicolon:
                return
            end = semicolon.end()
        old = self.source(start, end)
        if old != new and end > start:
            fault = Fault(kind, start, end, old, new, *self.place(start), at_build, statement)
            self.faults.setdefault((start, end, new), fault)

    def place(self, offset):
        """Line and column, from 1."""
        return self.text.count(b'\n', 0, offset) + 1, offset - self.text.rfind(b'\n', 0, offset)

    # --- The walk ---

    def walk(self, node, at_build):
        kind = node.kind
        if kind in FUNCTIONS:
            head = self.of(node).split('{')[0]
            at_build = bool(re.search(r'\bconst(?:expr|eval)\b', head))
            self.in_thread = node.spelling.endswith('Proc')
            self.filled |= filled_by_calls(node, self.of)
        elif kind == K.VAR_DECL:
            if node.hash in self.filled and re.search(r'= \w+$', self.of(node)):
                return
            head = self.of(node).split('=')[0].split('{')[0]
            at_build = at_build or bool(re.search(r'\bconstexpr\b', head))
        elif kind in COMPUTED_AT_BUILD:
            at_build = True
        elif kind == K.STATIC_ASSERT:
            return
        elif kind == K.CALL_EXPR and node.spelling in NO_PROMISE:
            return
        children = list(node.get_children())
        if kind in BRANCHES:
            self.condition(children, at_build, last=kind == K.DO_STMT)
        if kind in BODIES:
            self.statements(kind, children)
        if kind == K.BINARY_OPERATOR and len(children) == 2:
            self.operator(node, *children, at_build)
        elif kind == K.CALL_EXPR:
            self.call(node, children, at_build)
            places = NO_MEANING.get(node.spelling, ())
            same = [a.extent for i, a in enumerate(node.get_arguments()) if i in places]
            children = [child for child in children if child.extent not in same]
        elif kind in (K.INTEGER_LITERAL, K.CXX_BOOL_LITERAL_EXPR, K.UNEXPOSED_EXPR, K.DECL_REF_EXPR):
            self.constant(node, at_build)
        if kind == K.CASE_STMT:
            children = children[1:]
        elif kind == K.RETURN_STMT and self.in_thread:
            return  # no thread's exit code is read
        for child in children:
            self.walk(child, at_build)

    # --- The operators ---

    def condition(self, children, at_build, last):
        if any(child.kind == K.VAR_DECL for child in children):
            return
        expressions = [child for child in children if child.kind.is_expression()]
        if not expressions:
            return
        condition = bare(expressions[-1 if last else 0])
        # The fault of a comparison serves as well.
        if condition.kind == K.BINARY_OPERATOR and self.sign(condition) in COMPARISONS:
            return
        text = self.of(condition)
        negated = text[1:] if re.fullmatch(r'![\w:.]+(\(\))?', text) else f'!({text})'
        self.add('condition', condition, negated, at_build)

    def sign(self, node):
        children = list(node.get_children())
        if len(children) != 2:
            return ''
        return self.source(children[0].extent.end.offset, children[1].extent.start.offset).strip()

    def operator(self, node, left, right, at_build):
        sign = self.sign(node)
        other = COMPARISONS.get(sign) or LOGIC.get(sign)
        if sign in OPPOSITES and CLOCKS.search(self.of(node)):
            other = OPPOSITES[sign]
        if not other or (sign in LOGIC and self.come_together(node, left, right)) \
                or self.is_difference_or_nothing(node, left, right):
            return
        kind = 'comparison' if sign in COMPARISONS else 'condition'
        self.add(kind, node, f'{self.of(left)} {other} {self.of(right)}', at_build)

    def come_together(self, node, left, right):
        """Whether it asks for the success of a call and for what the call gives: one comes with the other."""
        given = re.fullmatch(r'!?([\w.]+)', self.of(right))
        succeeds = re.fullmatch(r'(?:FAILED|SUCCEEDED)\((\w+)\)', self.of(left))
        if not given or not (succeeds or re.match(r'(?:FAILED|SUCCEEDED)\(', self.of(left))
                             or re.search(r'[!=]= (?:ERROR_SUCCESS|RPC_S_OK)$', self.of(left))):
            return False
        call = self.of(left)
        if succeeds:
            before = self.source(0, node.extent.start.offset)
            call = before[max(before.rfind(f'{succeeds[1]} = '), 0):]
        name = re.escape(given[1])
        return re.search(rf'\b{name}\.Receive\(|ReceiveAny\({name}\)', call) is not None

    def is_difference_or_nothing(self, node, left, right):
        """Whether it is the question of `a > b ? a - b : 0`: where both are the same, so are both answers."""
        a, b = (re.escape(self.of(side)) for side in (left, right))
        if self.sign(node) in ('<', '<='):
            a, b = b, a
        rest = self.source(node.extent.end.offset, node.extent.end.offset + 200)
        return re.match(rf' \? {a} - (?:static_cast<\w+>\()?{b}\)? : 0\b', rest) is not None

    def call(self, node, children, at_build):
        sign = node.spelling.removeprefix('operator')
        if sign in COMPARISONS and len(children) == 3:
            left, _, right = children
            self.add('comparison', node, f'{self.of(left)} {COMPARISONS[sign]} {self.of(right)}',
                     at_build)
            return
        function = node.referenced
        if not function or function.kind not in (K.FUNCTION_DECL, K.CXX_METHOD) or sign != node.spelling \
                or node.spelling in SYMMETRIC:
            return
        arguments = [a for a in node.get_arguments() if a and a.extent.end.offset > a.extent.start.offset]
        for one, other in zip(arguments, arguments[1:]):
            if kind_of(one) == kind_of(other) and self.of(one) != self.of(other):
                begin, end = node.extent.start.offset, node.extent.end.offset
                a, b = one.extent, other.extent
                if not begin < a.start.offset < a.end.offset <= b.start.offset < end:
                    continue
                new = (self.source(begin, a.start.offset) + self.of(other) +
                       self.source(a.end.offset, b.start.offset) + self.of(one) +
                       self.source(b.end.offset, end))
                self.add('arguments', node, new, at_build)

    def constant(self, node, at_build):
        text = self.of(node)
        macro = self.macros.get(node.extent.start.offset)
        if macro:
            if text in ('TRUE', 'FALSE'):
                self.add('constant', node, 'FALSE' if text == 'TRUE' else 'TRUE', at_build)
        elif text in ('true', 'false'):
            self.add('constant', node, 'false' if text == 'true' else 'true', at_build)
        elif node.kind == K.INTEGER_LITERAL and re.match(r'\d', text):
            number = re.fullmatch(r"(\d+)(\w*)", text)
            if number and not text.startswith('0x'):
                value = int(number[1])
                # Of a large number the next is near enough to change nothing.
                new = 1 - value if value < 2 else value + 1 if value < 100 else 2 * value
                self.add('constant', node, f'{new}{number[2]}', at_build)
            else:
                self.add('constant', node, f'({text} >> 1)', at_build)
        elif node.kind == K.DECL_REF_EXPR and node.referenced \
                and node.referenced.kind == K.ENUM_CONSTANT_DECL:
            names = [c.spelling for c in node.referenced.semantic_parent.get_children()
                     if c.kind == K.ENUM_CONSTANT_DECL]
            name = node.referenced.spelling
            if text.endswith(name) and len(names) > 1:
                following = names[(names.index(name) + 1) % len(names)]
                self.add('constant', node, text.removesuffix(name) + following, at_build)

    def statements(self, kind, children):
        if kind not in (K.COMPOUND_STMT, K.IF_STMT):
            children = children[-1:]  # the body; of `if`, what is no statement has no semicolon
        previous = None
        for child in children:
            node = bare(child)
            if not self.acts(node):
                previous = None
                continue
            self.add('dropped', node, ';', at_build=False, statement=True)
            if previous and K.CALL_EXPR in (node.kind, previous.kind) and kind == K.COMPOUND_STMT:
                self.swap(previous, node)
            previous = node

    def acts(self, node):
        """Whether it is a statement whose absence would be a fault."""
        if node.kind == K.CALL_EXPR:
            return node.spelling not in NO_PROMISE
        if node.kind == K.UNARY_OPERATOR:
            return '++' in self.of(node) or '--' in self.of(node)
        return node.kind in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR, K.CXX_DELETE_EXPR)

    def swap(self, first, second):
        # Of two calls of one function for different objects, either may come first.
        if first.kind == second.kind == K.CALL_EXPR and first.spelling == second.spelling \
                and not first.spelling.startswith('operator'):
            return
        if self.independent(first, second):
            return
        start, end = first.extent.start.offset, second.extent.end.offset
        between = self.source(first.extent.end.offset, second.extent.start.offset)
        if between.strip() != ';' or not self.source(end, end + 1) == ';':
            return
        old, new = self.source(start, end + 1), f'{self.of(second)}; {self.of(first)};'
        self.faults[(start, end + 1, new)] = Fault('order', start, end + 1, old, new, *self.place(start),
                                                   statement=True)

    def independent(self, first, second):
        """Whether both set something that no other thread looks at meanwhile, or only read or hold something,
        or one of them computes with the function's own variables only, and neither reads what the other sets."""
        if not all(is_quiet(node) for node in (first, second)) \
                and not any(is_within_function(node) for node in (first, second)):
            return False
        one, other = self.of(first), self.of(second)
        return not reads(one, target_of(other)) and not reads(other, target_of(one))


def target_of(text):
    """What a statement sets or fills."""
    set_by = re.match(r'(.+?) = ', text)
    filled = re.findall(r'&(\w+)', text)
    return set_by[1] if set_by else filled[-1] if filled else ''


def reads(text, target):
    whole = re.escape(target.split('.')[0])
    return bool(target) and re.search(rf'\b(?:{re.escape(target)}|{whole}(?!\.))(?!\w)', text) is not None


def is_quiet(node):
    """Whether the order of the statement and of another such one is not seen from outside: an assignment to
    what is not atomic, of anything to a variable of the function and of what calls nothing to all else; a call
    that reads, or that holds or lets go of an object."""
    if node.kind == K.CALL_EXPR and node.spelling != 'operator=':
        return node.spelling in HOLDS or re.match(r'(Get|Read|Query)[A-Z]', node.spelling) is not None
    if node.kind != K.BINARY_OPERATOR and node.spelling != 'operator=':
        return False
    target, *_, value = node.get_children()
    if 'atomic' in target.type.get_canonical().spelling:
        return False
    return is_of_function(node) or not any(n.kind == K.CALL_EXPR and n.spelling not in ('operator=', '')
                                           for n in value.walk_preorder())


def is_within_function(node):
    """Whether it sets a variable of the function to what is computed of such variables alone."""
    if not is_of_function(node):
        return False
    _, *value = node.get_children()
    inner = [n for part in value[-1:] for n in part.walk_preorder()]
    return not any(n.kind in (K.CALL_EXPR, K.MEMBER_REF_EXPR, K.CXX_THIS_EXPR) for n in inner) and all(
        n.referenced and (n.referenced.kind in (K.ENUM_CONSTANT_DECL, K.PARM_DECL)
                          or n.referenced.semantic_parent.kind in FUNCTIONS)
        for n in inner if n.kind == K.DECL_REF_EXPR)


def filled_by_calls(function, of):
    """The variables of a function that are first used where they are set, or where a call fills them: by their
    address, or by a reference that is not constant. What they hold before is not read, or is the value of a
    failure."""
    first = {}

    def visit(node, fills, always):
        if node.kind == K.CXX_UNARY_EXPR:
            return  # sizeof
        if node.kind == K.DECL_REF_EXPR and node.referenced and node.referenced.kind == K.VAR_DECL:
            first.setdefault(node.referenced.hash, fills)
        parameters = []
        if node.kind == K.CALL_EXPR and node.referenced:
            parameters = [a.type.spelling for a in node.referenced.get_arguments()]
        arguments = list(node.get_arguments()) if parameters else []
        for child in node.get_children():
            place = next((i for i, a in enumerate(arguments) if a == child), None)
            by_reference = place is not None and place < len(parameters) \
                and parameters[place].endswith(' &') and not parameters[place].startswith('const ')
            by_address = node.kind == K.UNARY_OPERATOR and of(node).startswith('&')
            is_set = always and node.kind == K.BINARY_OPERATOR and child == next(node.get_children()) \
                and of(node).startswith(f'{of(child)} = ') and of(node).count(of(child)) == 1
            visit(child, by_reference or by_address or is_set or (fills and node.kind == K.UNEXPOSED_EXPR),
                  always and node.kind not in DEPENDS)
    visit(function, False, True)
    return {variable for variable, fills in first.items() if fills}


def is_of_function(node):
    """Whether the node is `a = ...` or `a.b = ...` for a variable or parameter of the function."""
    if node.kind != K.BINARY_OPERATOR and not (node.kind == K.CALL_EXPR and node.spelling == 'operator='):
        return False
    while node.kind != K.DECL_REF_EXPR:
        node = next(node.get_children(), None)
        if node is None or node.kind in (K.CXX_THIS_EXPR, K.CALL_EXPR):
            return False
    variable = node.referenced
    return variable.kind == K.PARM_DECL or (variable.kind == K.VAR_DECL
                                            and variable.semantic_parent.kind in FUNCTIONS)


def bare(node):
    """The node without the compiler's own wrappings."""
    while node.kind == K.UNEXPOSED_EXPR:
        children = list(node.get_children())
        if len(children) != 1 or children[0].extent != node.extent:
            break
        node = children[0]
    return node


def kind_of(argument):
    return re.sub(r'\bconst\b\s*', '', argument.type.get_canonical().spelling)


def find(path, arguments):
    """The faults of a file, in the order of their places."""
    return sorted(Finder(path, arguments).faults.values(), key=lambda f: (f.start, -f.end, f.new))
