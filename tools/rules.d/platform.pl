# Every function of the platform is modelled on the virtual PC, can be made to fail there, and is used.
use strict;
use warnings;

# Functions that make no Call on the virtual PC, and why.
my %no_call = (
    GetLastError => 'a Call sets the last error',
    SetLastError => 'a Call sets the last error',
    InitializeCriticalSection => 'static objects make their locks before there is a machine',
    DeleteCriticalSection => 'static objects delete their locks when there is no machine any more',
    GetCurrentThreadId => 'reads a constant of the thread, and cannot fail',
    GetCurrentProcess => 'is a constant',
    TlsGetValue => 'is read by every line of the log, and cannot fail',
    TlsSetValue => 'is set where the thread is known, and cannot fail',
    SysStringLen => 'reads its argument only',
    VariantInit => 'writes its argument only',
    wWinMain => 'is defined by the service and called by the machine',
);

# Functions that the service does not call: who does, and why they are declared.
my %for_others = (
    wWinMain => [qr{^service/}, 'the service defines it, and the machine runs it'],
    SysStringLen => [qr{^platform/virtual/(?:.*/)?marshal\.cpp$}, 'strings between processes may hold zeros'],
    VariantClear => [qr{^pc/}, "for the PC's clients of the control interface"],
    VariantChangeType => [qr{^pc/}, "for the PC's clients of the control interface"],
    RegNotifyChangeKeyValue => [qr{^ctl/}, 'holvctl watch waits by it'],
    OpenEventLogW => [qr{^ctl/}, 'holvctl report reads what the service has reported'],
    ReadEventLogW => [qr{^ctl/}, 'holvctl report reads what the service has reported'],
    CloseEventLog => [qr{^ctl/}, 'holvctl report reads what the service has reported'],
    OpenProcess => [qr{^ctl/}, 'holvctl asks whether the service was killed'],
    CLSIDFromProgID => [qr{^(?:pc|examples)/}, 'for clients of the control interface'],
);

# The functions that a header declares: [name, line].
sub declared {
    my ($tree, $header) = @_;
    my $code = $tree->code($header);
    my @declared;
    # At a line's beginning: a result, WINAPI or the like and a name, or a name that begins with _.
    my $no_result = qr/(?:using|typedef|return|virtual|template|inline|constexpr)\b/;
    my $name = qr/(?:WINAPI|WINAPIV|STDAPICALLTYPE)\s+(\w+)|(_\w+)/;
    while ($code =~ /^[^\S\n]*(?!$no_result)(?=[\w:])[\w:*&<>\s]*?\b(?:$name)\s*\([^;{}()]*\)\s*;/gm) {
        push @declared, [$1 // $2, Tree::line_of($code, $+[1] // $+[2])];
    }
    return @declared;
}

# The function's name => whether its definition, somewhere below platform/virtual, names a Function
# constant of that file that bears its name.
sub through_call {
    my ($tree) = @_;
    my %through;
    for my $file ($tree->files(qr{^platform/virtual/.*\.cpp$})) {
        my ($code, $strings) = ($tree->code($file), $tree->code_with_strings($file));
        my %constants;
        $constants{$2} = $1 while $strings =~ /\bFunction\s+(\w+)\s*\{\s*"([^"]+)"/g;
        for my $name (keys %constants) {
            # The definition: a name, its parameters and a body that ends with the first brace in the
            # first column, or on its own line.
            while ($code =~ /\b$name\s*\([^;{}]*\)\s*(\{[^\n]*\}\n|\{.*?^\})/msg) {
                $through{$name} = 1 if $1 =~ /\b$constants{$name}\b/;
            }
        }
    }
    return \%through;
}

sub functions {
    my ($tree) = @_;
    my $through = through_call($tree);
    my (%words_of, %callers);
    for my $file ($tree->files(qr{\.(?:h|cpp)$})) {
        next if $file =~ m{^platform/[^/]+\.h$} and $file !~ m{^platform/(?:owned|lock)\.h$};
        my %words = map { $_ => 1 } $tree->code($file) =~ /\w+/g;
        $words_of{$file} = \%words;
        @callers{keys %words} = () if $file =~ $Tree::service or $file =~ m{^platform/[^/]+\.h$};
    }
    my (@found, %declared);
    for my $header ($tree->files(qr{^platform/[^/]+\.h$})) {
        for (declared($tree, $header)) {
            my ($name, $line) = @$_;
            next if $declared{$name}++;
            my $say = sub { push @found, [$header, $line, "$name $_[0]", "$header:$name"] };
            $say->('has no definition in platform/virtual that makes a Call of its own name, so no fault can '
                . "strike it; add Function x{\"$name\"} and Call call(x)") unless $through->{$name} or $no_call{$name};
            $say->('makes a Call; remove its exception in tools/rules.d/platform.pl')
                if $through->{$name} and $no_call{$name};
            my $others = $for_others{$name};
            my $called = $others ? grep { $_ =~ $others->[0] and $words_of{$_}{$name} } keys %words_of
                                 : exists $callers{$name};
            $say->('is not called by the service; remove it, or say in tools/rules.d/platform.pl what it is for')
                unless $called;
        }
    }
    return @found;
}

# The table of docs/windows.md, which tools/check_calls.pl holds against the source.
sub calls {
    my ($tree) = @_;
    my $table = 'docs/windows.md';
    return unless $tree->has($table);
    open my $check, '-|', $^X, "$FindBin::Bin/check_calls.pl", '--root', $tree->{root}
        or die "check_calls.pl: $!\n";
    my @found = map { chomp; [$table, 1, s/^\Q$table\E: //r . '; mend the table of calls'] } <$check>;
    close $check or $? >> 8 == 1 or die "tools/check_calls.pl failed\n";
    return @found;
}

(
    {
        name => 'platform',
        says => 'each function of platform/ makes a Call in platform/virtual and is called by the service',
        check => \&functions,
        planted => {
            'platform/event.h' => "// BOOL WINAPI Old();\nBOOL WINAPI Calls(HANDLE event);\n"
                . "BOOL WINAPI Forgets(\n    HANDLE event);\nint _unused(void* file);\nusing Routine = BOOL(WINAPI*)(HANDLE event);\n",
            'platform/virtual/events/event_api.cpp' => "Function calls{\"Calls\"};\n"
                . "Function forgets{\"Forgets\"};\nFunction unused{\"_unused\"};\n"
                . "BOOL WINAPI Calls(HANDLE)\n{\n    Call call(calls);\n}\n"
                . "BOOL WINAPI Forgets(HANDLE)\n{\n    return 1;\n}\n"
                . "int _unused(void*) { return Close(unused); }\n",
            'state/s.cpp' => "BOOL a = Calls(0) && Forgets(0);\n",
            'docs/windows.md' => "| `SetEvent`, `CloseHandle`, `Calls`, `Forgets` | Wine | |\n",
        },
        found => [
            'platform/event.h:3: Forgets has no definition in platform/virtual that makes a Call of its own '
                . 'name, so no fault can strike it; add Function x{"Forgets"} and Call call(x)',
            'platform/event.h:5: _unused is not called by the service; remove it, or say in '
                . 'tools/rules.d/platform.pl what it is for',
        ],
    },
    {
        name => 'calls',
        says => 'docs/windows.md has a row for each function of Windows that the service calls, and no other',
        check => \&calls,
        planted => {
            'docs/windows.md' => "Of 3 functions that we call.\n| `CloseHandle`, `Sleep` | Wine | |\n",
        },
        found => [
            'docs/windows.md:1: says 3 functions that we call, and has 2 functions that the service calls, '
                . '2 are proven under Wine, 0 are stood in for, 0 are unproven; mend the table of calls',
            'docs/windows.md:1: SetEvent (kernel.h) has no row; mend the table of calls',
            'docs/windows.md:1: Sleep has a row, but is not called; mend the table of calls',
        ],
    },
)
