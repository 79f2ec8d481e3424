#!/usr/bin/env perl
# Compares two logs of the same life on different machines, thread by thread, but for values that differ by
# nature. Usage: same_words.pl EXPECTED ACTUAL. Prints "ok", or the first difference.
# `--lines LOG [SECONDS]` prints instead how many lines it has: all, or those of its first seconds.
use strict;
use warnings;

# Values that differ in every run, and their replacements.
my @own = (
    [qr/\d\d\.\d\d\.\d{4}, at [\d:]+/ => 'DATE'],
    [qr/Compile time : .*/            => 'Compile time'],
    [qr/ProcessID: 0x[0-9a-f]+/       => 'ProcessID'],
    [qr/\b[0-9A-F]{16}\b/             => 'POINTER'],
    # The sound system may keep references of its own to its objects.
    [qr/(?<=elease of POINTER returned )\d+|(?<=Release returned )\d+/ => 'some'],
    [qr/Timestamp = \d+ ms/           => 'Timestamp'],
    [qr/currTime is \d+ minutes/      => 'TIME'],
    [qr/fire in \d+ minutes\t\[timerDue: -\d+\]/ => 'fire in time'],
);
# The audio context and the endpoints' ids, new GUIDs in each run. Each is replaced by its number in its log,
# so that the same endpoint must be meant.
my $guid = qr/\b[0-9A-Fa-f]{8}(?:-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\b/;

# The lines, each with its time in milliseconds, its thread and its words.
sub lines_of {
    my ($path) = @_;
    open my $file, '<:raw', $path or die "$path: $!\n";
    my $bytes = do { local $/; <$file> };
    my @lines;
    for my $line (split /\r\n\r\r/, $bytes) {
        $line =~ s/\A(\d+):(\d+):(\d+):(\d+),\[t:(0x[0-9A-F]+)\] : //
            or die "$path: not a line of the log: $line\n";
        my ($time, $thread) = ((($1 * 60 + $2) * 60 + $3) * 1000 + $4, $5);
        push @lines, [$time, $thread, $line];
    }
    return @lines;
}

# The lines of each thread, in the order of the threads' first lines. The order between threads is not
# compared.
sub threads_of {
    my ($path) = @_;
    my (%lines, @order);
    my $rules = 0;
    for (lines_of($path)) {
        my (undef, $thread, $line) = @$_;
        # A process begins with a header between two rules, and may have a thread's number anew.
        $rules++ if $line =~ /\A={53} /;
        $thread .= ' of process ' . int(($rules + 1) / 2);
        # Wine calls the control handler on a thread of its own, not on the process's first.
        $thread = 'handler' if $line =~ /\ASERVICE_CONTROL_/;
        push @order, $thread unless $lines{$thread};
        $line =~ s/$_->[0]/$_->[1]/g for @own;
        push @{$lines{$thread}}, $line;
    }
    my %number;
    for my $lines (@lines{@order}) {
        s/($guid)/'GUID ' . ($number{uc $1} \/\/= 1 + keys %number)/ge for @$lines;
    }
    return map { $lines{$_} } @order;
}

if ($ARGV[0] eq '--lines') {
    my @lines = lines_of($ARGV[1]);
    my $end = defined $ARGV[2] ? $lines[0][0] + $ARGV[2] * 1000 : 'inf';
    print scalar(grep { $_->[0] < $end } @lines), "\n";
    exit 0;
}
my @expected = threads_of($ARGV[0]);
my @actual = threads_of($ARGV[1]);
for my $thread (0 .. ($#expected > $#actual ? $#expected : $#actual)) {
    my ($here, $there) = ($expected[$thread] // [], $actual[$thread] // []);
    for my $at (0 .. (@$here > @$there ? $#$here : $#$there)) {
        my ($one, $other) = ($here->[$at] // 'nothing', $there->[$at] // 'nothing');
        next if $one eq $other;
        print 'thread ', $thread + 1, ', line ', $at + 1, ": \"$one\", and then \"$other\"\n";
        exit 1;
    }
}
die "the logs are empty\n" unless @expected;
print "ok\n";
