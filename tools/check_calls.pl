#!/usr/bin/env perl
# Holds the table of calls in docs/windows.md against the source: each function of Windows that the
# service calls has its row, and no other has one. Usage: tools/check_calls.pl [--root DIR] [TRACE]
# With the trace of a Wine check, what the service calls there must be claimed, and what is claimed must
# have been called. `--list` prints the functions, and the names that Wine has for some, instead.
use strict;
use warnings;
use File::Basename;

my $root = dirname(__FILE__) . '/..';
(undef, $root) = splice @ARGV, 0, 2 if @ARGV > 1 and $ARGV[0] eq '--root';

# What kernel32 hands on is called by its name in there.
my %inner = map { ("Rtl$_" => $_) } qw(EnterCriticalSection LeaveCriticalSection
    InitializeCriticalSection DeleteCriticalSection);
@inner{qw(RtlGetLastWin32Error RtlSetLastWin32Error)} = qw(GetLastError SetLastError);

# Wine does not trace these, and of the first it is too much: all programs call it all the time. Every
# line of the log has them called.
my %untraced = map { ($_ => 1) } qw(TlsGetValue GetCurrentThreadId GetCurrentProcessId GetCurrentProcess);

sub slurp {
    my ($path) = @_;
    open my $file, '<', $path or die "$path: $!\n";
    local $/;
    return <$file>;
}

# What the headers declare and the service's rooms, or the owners of what Windows hands out, name.
my $rooms = join '', map { slurp($_) }
    glob("$root/{service,settings,state,restore,reconciler,power,audio,api,log,process}/*.{h,cpp}"), "$root/platform/owned.h",
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
for (sort keys %declared) {
    push @wrong, "$_ ($declared{$_}) has no row" unless $claimed{$_};
}
for (sort keys %claimed) {
    push @wrong, "$_ has a row, but is not called" unless $declared{$_};
}

# Calls from our program's image, of the processes that open the service's settings. They lie where
# every program's does, and a process may have the number of one that is gone.
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
            if $claimed{$_} eq 'Wine' and not $called{$_};
        push @wrong, "$_ is called under Wine, and said to be unproven"
            if $claimed{$_} eq 'unproven' and $called{$_};
    }
}

print "docs/windows.md: $_\n" for @wrong;
exit(@wrong ? 1 : 0);
