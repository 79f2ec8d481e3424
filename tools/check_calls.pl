#!/usr/bin/env perl
# Compares the table of calls in docs/windows.md with the source: each Windows function that the
# service calls has a row, and no other function has one. Usage: tools/check_calls.pl [--root DIR] [TRACE]. With
# the trace of a Wine check, the functions called there must be the ones that the table claims.
# `--without FUNCTION` expects no call of that one.
# `--list` prints the functions instead, with the names that Wine uses for some of them.
use strict;
use warnings;
use File::Basename;

my $root = dirname(__FILE__) . '/..';
(undef, $root) = splice @ARGV, 0, 2 if @ARGV > 1 and $ARGV[0] eq '--root';
my $without = '';
(undef, $without) = splice @ARGV, 0, 2 if @ARGV > 1 and $ARGV[0] eq '--without';

# Functions that kernel32 forwards to ntdll are traced by their names there.
my %inner = map { ("Rtl$_" => $_) } qw(EnterCriticalSection LeaveCriticalSection
    InitializeCriticalSection DeleteCriticalSection);
@inner{qw(RtlGetLastWin32Error RtlSetLastWin32Error)} = qw(GetLastError SetLastError);

# Wine does not trace these, or traces too many calls of them. Every log line calls them.
my %untraced = map { ($_ => 1) } qw(TlsGetValue GetCurrentThreadId GetCurrentProcessId GetCurrentProcess);

sub slurp {
    my ($path) = @_;
    open my $file, '<', $path or die "$path: $!\n";
    local $/;
    return <$file>;
}

# The functions that the platform headers declare and the service's folders, owned.h or lock.h use.
my $rooms = join '', map { slurp($_) }
    glob("$root/{service,settings,state,restore,reconciler,power,audio,api,log,process,json,publish,history}/*.{h,cpp}"), "$root/platform/owned.h",
    "$root/platform/lock.h";
my %declared;
for my $header (glob "$root/platform/*.h") {
    my $text = slurp($header);
    $text =~ s{//.*}{}g;
    while ($text =~ /\b(?:WINAPI|WINAPIV)\s+(\w+)\s*\(/g) {
        my $function = $1;
        $declared{$function} = basename($header) if $rooms =~ /\b$function\b/;
    }
}
delete $declared{wWinMain};         # Windows calls it
delete $declared{SysFreeString};    # for clients

if (@ARGV and $ARGV[0] eq '--list') {
    print join(';', sort(grep { not $untraced{$_} } keys %declared), sort(keys %inner)), "\n";
    exit 0;
}

# Rows like | `SetEvent`, `ResetEvent` | Wine | why |
my %claimed;
for (split /\n/, slurp("$root/docs/windows.md")) {
    next unless /^\| (`\w+`(?:, `\w+`)*) \| (Wine|stand-in|unproven) \|/;
    my ($functions, $claim) = ($1, $2);
    for my $function ($functions =~ /\w+/g) {
        die "docs/windows.md: $function has two rows\n" if $claimed{$function};
        $claimed{$function} = $claim;
    }
}

my @wrong;
my %count;
$count{$_}++ for values %claimed;
my $counts = sprintf '%d functions that the service calls, %d are proven under Wine, %d are stood in for, '
    . '%d are unproven', scalar keys %claimed, map { $count{$_} // 0 } qw(Wine stand-in unproven);
my ($says) = slurp("$root/docs/windows.md") =~ /^Of (\d+ functions that .*)\.$/m;
push @wrong, "says $says, and has $counts" if defined $says and $says ne $counts;
for (sort keys %declared) {
    push @wrong, "$_ ($declared{$_}) has no row" unless $claimed{$_};
}
for (sort keys %claimed) {
    push @wrong, "$_ has a row, but is not called" unless $declared{$_};
}

# Reads a trace of Wine and returns the functions that are called from the service's image. All
# programs' images lie at the same address, so a process counts as the service's when it opens the
# service's settings. Ids of processes are used again: what an id has called is settled when the
# next process attaches under it.
sub called_in {
    my ($path) = @_;
    my (%calls, %ours, %called);
    my $end = sub {
        my ($process) = @_;
        %called = (%called, %{$calls{$process} // {}}) if $ours{$process};
        delete @$_{$process} for \%calls, \%ours;
    };
    open my $trace, '<', $path or die "$path: $!\n";
    while (<$trace>) {
        $end->($1) if /^(\w+):.*"ntdll\.dll",reason=PROCESS_ATTACH/;
        next unless /^(\w+):\w+:Call \w+\.(\w+)\((.*) ret=1400\w{5}$/;
        my ($process, $function, $arguments) = ($1, $2, $3);
        $calls{$process}{$inner{$function} // $function} = 1;
        $ours{$process} = 1 if $arguments =~ /Software\\\\Orbeq\\\\Holv\\\\/;
    }
    $end->($_) for keys %calls;
    return (%untraced, %called);
}

if (@ARGV) {
    my %called = called_in($ARGV[0]);
    for (sort grep { $declared{$_} } keys %claimed) {
        push @wrong, "$_ is said to be called under Wine, and is not"
            if $claimed{$_} eq 'Wine' and not $called{$_} and $_ ne $without;
        push @wrong, "$_ is called under Wine, and said to be unproven"
            if $claimed{$_} eq 'unproven' and $called{$_};
    }
}

print "docs/windows.md: $_\n" for @wrong;
exit(@wrong ? 1 : 0);
