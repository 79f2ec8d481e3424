#!/usr/bin/env perl
# Checks, byte by byte, the log that runs of "HOLVService.exe -Debug" have written. Usage:
# check_log.pl LOG EXECUTABLE RUNS. Prints "ok", or the first wrong line.
use strict;
use warnings;

my ($path, $executable, $runs) = @ARGV;
open my $file, '<:raw', $path or die "$path: $!\n";
my $bytes = do { local $/; <$file> };

# Every line ends with these four bytes, and nothing follows the last.
die "the last line does not end with CR LF CR CR\n" unless $bytes =~ /\r\n\r\r\z/;
my @lines = split /\r\n\r\r/, $bytes;

my $time = qr/\d\d:\d\d:\d\d:\d\d\d/;
my $rule = '=' x 53;
my $decision = 'g_bEnableNeverSleep\{TRUE\}, bAc\{TRUE\}, g_bEnableHolvOnDC\{TRUE\}, '
    . 'm_bBatteryThresholdCrossed\{FALSE\}, g_bEnableDoNotDisturb\{TRUE\}, '
    . 'm_bSeenDndStart\{(?:TRUE|FALSE)\}, g_bDndToS3\{FALSE\}';

# A run's lines, each with its level. Other lines may stand between those after the header.
my @header = (
    [5, $rule],
    [5, qr/Log set to file on \d\d\.\d\d\.\d{4}, at $time/],
    [5, "Executable: $executable"],
    [5, qr/Compile time : [A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d/],
    [5, qr/ProcessID: 0x[0-9a-f]+/],
    [5, 'HOLV Build Version # 1.1.70.537'],
    [5, 'Log File Size: 5MB'],
    [5, $rule],
);
my @story = (
    [1, "OEM default registry path does not exist.\n"],
    [1, 'HOLVDevice was not found'],
    [1, qr/This system is(?: NOT)? running Windows 7 \[\d+\.\d+\]/],
    [1, "ACPI device is mssing. No hardware notification will be supported ....\n"],
    [1, "HOLV Feature is enabled on service start\n"],
    [1, qr/ConfigureAwayMode entry: $decision/],
    [1, 'ConfigureAwayMode exit'],
    [1, qr/ConfigureSystemRequired entry: $decision/],
    [1, 'ConfigureSystemRequired exit'],
    [1, 'EnterNormalS0State entry'],
    [1, 'State update HOLV_INIT >>----->> S0_NORMAL happened here'],
    [1, 'EnterNormalS0State exit'],
    [2, 'Unknown event, WaitForMultipleObjects Return Code=-1, GLE=6'],
);

sub text_is {
    my ($line, $level, $text) = @_;
    my $expected = ref $text ? $text : quotemeta $text;
    return $line =~ /\A$time,\[t:0x[0-9A-F]+\] : $expected \[L=$level\]\[M=NeverSleep\]\z/;
}

sub fail {
    my ($at, $what, $end) = @_;
    my $was = $at < $end ? "\"$lines[$at]\"" : 'the end of its run';
    $was =~ s/([^ -~])/sprintf '\\x%02X', ord $1/ge;
    print 'line ', $at + 1, ": $what, but found $was\n";
    exit 1;
}

sub expected { my ($level, $text) = @{$_[0]}; return "expected \"$text\" at level $level"; }

# Every line has the one form. A message may end with a line end of its own, and may contain tabs.
for my $at (0 .. $#lines) {
    fail($at, 'expected a line of the log', scalar @lines)
        unless text_is($lines[$at], qr/[1-6]/, qr/[\t -~]*\n?/);
}

# Each run begins with a rule that does not close a header. A header in the middle of a run, which
# no process may write, therefore counts as an extra run.
my @starts;
for my $at (0 .. $#lines) {
    next unless text_is($lines[$at], @{$header[0]});
    push @starts, $at unless @starts && $at - $starts[-1] == $#header;
}
my $found = @starts;
if ($found != $runs || $starts[0] != 0) {
    print "expected $runs headers, the first in line 1, but found $found, in the lines ",
        join(', ', map { $_ + 1 } @starts), "\n";
    exit 1;
}

for my $run (0 .. $#starts) {
    my $at = $starts[$run];
    my $end = $run < $#starts ? $starts[$run + 1] : @lines;
    for my $line (@header) {
        fail($at, expected($line), $end) unless $at < $end && text_is($lines[$at], @$line);
        $at++;
    }
    for my $line (@story) {
        my $from = $at;
        $at++ while $at < $end && !text_is($lines[$at], @$line);
        fail($from, expected($line) . ' from here on', $end) if $at == $end;
        $at++;
    }
}
print "ok\n";
