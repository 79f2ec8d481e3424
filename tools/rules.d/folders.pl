# How the folders include one another, and what the service may not name.
use strict;
use warnings;

# What may not be included by the files of a folder. Nothing above the platform is known to it, and
# the service knows no machine that it runs on.
my %machines = map { $_ => 1 } qw(pc tests storm ctl bench fuzz);
my %service_folder = map { $_ => 1 } @Tree::service;
# Folders that may include only these others, and be included by those only.
my %includes_only = (reconciler => [qw(reconciler state power restore log settings platform)],
                     restore => [qw(restore log platform)]);
my %included_by_only = (reconciler => [qw(reconciler service publish pc ctl storm tests)]);

# What two folders need of one another is a small folder of its own, on a lower floor.
my %small = map { $_ => 1 } qw(settings/settings service/service_status state/never_sleep_state
                               state/owned_object pc/main);

# The folders of platform/virtual, bottom up: a facet includes those before it. Files in
# platform/virtual itself may include all of them.
my @facets = qw(base core registry devices eventlog announcer console disk processes kernel power
                sessions services typelib com sound);
my %floor = map { $facets[$_] => $_ } 0 .. $#facets;

# Why a file of the virtual PC may not include another; nothing when it may.
sub upward {
    my ($file, $included) = @_;
    my ($from, $to) = map { m{^platform/virtual/(?:([^/]+)/)?} ? $1 // '' : undef } $file, $included;
    return unless defined $from and defined $to and $from ne '';
    for ($from, $to) {
        return "$_ has no floor yet; give it one in the table of \@facets in tools/rules.d/folders.pl"
            if $_ ne '' and not defined $floor{$_};
    }
    return if $to ne '' and $floor{$to} <= $floor{$from};
    return "$from lies below " . ($to eq '' ? 'the whole PC' : $to)
        . '; turn the arrow round with a listener or an interface that the lower folder has';
}

sub node_of {
    my ($path) = @_;
    my $stem = $path =~ s/\.(?:h|cpp)$//r;
    return $small{$stem} ? $stem : $stem =~ s{/[^/]*$}{}r;
}

# Why the file may not include the other; nothing when it may.
sub forbidden {
    my ($file, $included) = @_;
    my ($from, $to) = map { m{^([^/]+)/} ? $1 : '' } $file, $included;
    if ($service_folder{$from}) {
        return "$from belongs to the service, which knows no $to" if $machines{$to};
        return 'the service knows no platform/virtual; use the headers of platform/'
            if $included =~ m{^platform/virtual/};
    }
    my $upward = upward($file, $included);
    return $upward if $upward;
    return "$from knows no $to; turn the arrow round with a listener or an interface of the platform's"
        if $from eq 'platform' and $service_folder{$to} || $machines{$to};
    my $only = $includes_only{$from};
    return "$from may include only @$only" if $only and not grep { $_ eq $to } @$only;
    my $by = $included_by_only{$to};
    return "$to may be included by @$by only" if $by and not grep { $_ eq $from } @$by;
    return;
}

# Walks on from a folder by those that led to it; one that is met again closes a circle.
sub walk {
    my ($includes, $done, $found, @way) = @_;
    for my $next (sort keys %{$includes->{$way[-1]} // {}}) {
        my ($from) = grep { $way[$_] eq $next } 0 .. $#way;
        if (defined $from) {
            my @circle = (@way[$from .. $#way], $next);
            my @arrows = map { [$circle[$_], @{$includes->{$circle[$_]}{$circle[$_ + 1]}}, $circle[$_ + 1]] }
                0 .. $#circle - 1;
            push @$found, [$arrows[0][1], $arrows[0][2], 'a circle of includes: '
                . join(', ', map { "$_->[0] includes $_->[3] at $_->[1]:$_->[2]" } @arrows)
                . '; move what both need into a header on a lower floor'];
        } elsif (not $done->{$next}) {
            walk($includes, $done, $found, @way, $next);
        }
    }
    $done->{$way[-1]} = 1;
}

sub folders {
    my ($tree) = @_;
    my (@found, %includes);
    for my $file ($tree->files(qr{^(?:@{[join '|', @Tree::service]}|platform|pc|storm|ctl)/.*\.(?:h|cpp)$})) {
        my $node = node_of($file);
        my $line = 0;
        for (split /\n/, $tree->code_with_strings($file)) {
            ++$line;
            push @found, [$file, $line, 'asks what it is built for; put the difference into platform/']
                if $file =~ $Tree::service and /^\s*#\s*(?:el)?if.*\b_WIN32\b/;
            my ($included) = /^\s*#\s*include\s+"([^"]+)"/ or next;
            my $why = forbidden($file, $included);
            push @found, [$file, $line, "includes $included: $why"] if $why;
            my $other = node_of($included);
            $includes{$node}{$other} //= [$file, $line] if $other ne $node;
        }
    }
    my %done;
    $done{$_} or walk(\%includes, \%done, \@found, $_) for sort keys %includes;
    return @found;
}

# The host's locks and threads, whose waits the virtual PC does not see.
sub locks {
    my ($tree) = @_;
    my $of_the_host = qr/\bstd::((?:recursive_|timed_|recursive_timed_|shared_|shared_timed_)?mutex|j?thread
        |condition_variable(?:_any)?|lock_guard|unique_lock|scoped_lock|shared_lock|this_thread|call_once
        |once_flag|async|future|promise|counting_semaphore|binary_semaphore|latch|barrier)\b
        |^\s*\#\s*include\s*<(mutex|shared_mutex|thread|condition_variable|future|semaphore|latch|barrier)>/x;
    my @found;
    for my $file ($tree->files(qr{$Tree::service.*\.(?:h|cpp)$})) {
        my $line = 0;
        for (split /\n/, $tree->code($file)) {
            ++$line;
            next unless $_ =~ $of_the_host;
            my $name = defined $1 ? "std::$1" : "<$2>";
            push @found, [$file, $line, "uses $name, whose waits the virtual PC cannot see; "
                . 'use ScopedLock (platform/lock.h) and the functions of platform/kernel.h'];
        }
    }
    return @found;
}

(
    {
        name => 'folders',
        says => 'no circle of includes; the service, platform/ and the facets of the virtual PC know only '
            . 'what lies below them',
        check => \&folders,
        planted => {
            'audio/a.h' => qq{#include "power/p.h"\n},
            'power/p.cpp' => qq{#include "power/p.h"\n#include "log/l.h"\n},
            'log/l.h' => qq{\n# include "audio/a.h"\n#include "settings/settings.h"\n},
            'settings/store.cpp' => qq{#include "log/l.h"\n},
            'state/s.cpp' => qq{#include "platform/virtual/machine.h"\n#ifdef _WIN32\n#endif\n},
            'platform/virtual/v.cpp' => qq{#include "power/p.h"\n#include "platform/virtual/com/c.h"\n},
            'platform/virtual/core/m.cpp' => qq{#include "platform/virtual/base/b.h"\n}
                . qq{#include "platform/virtual/com/c.h"\n#include "platform/virtual/pc.h"\n},
            'platform/virtual/core/n.h' => qq{#include "platform/virtual/printers/p.h"\n},
            'reconciler/r.cpp' => qq{#include "state/s.h"\n#include "process/p.h"\n#include "pc/story.h"\n},
            'audio/b.cpp' => qq{#include "reconciler/r.h"\n},
        },
        found => [
            'audio/a.h:1: a circle of includes: audio includes power at audio/a.h:1, power includes log at '
                . 'power/p.cpp:2, log includes audio at log/l.h:2; move what both need into a header on a '
                . 'lower floor',
            'audio/b.cpp:1: includes reconciler/r.h: reconciler may be included by reconciler service publish '
                . 'pc ctl storm tests only',
            'platform/virtual/core/m.cpp:2: includes platform/virtual/com/c.h: core lies below com; turn the '
                . 'arrow round with a listener or an interface that the lower folder has',
            'platform/virtual/core/m.cpp:3: includes platform/virtual/pc.h: core lies below the whole PC; '
                . 'turn the arrow round with a listener or an interface that the lower folder has',
            'platform/virtual/core/n.h:1: includes platform/virtual/printers/p.h: printers has no floor yet; '
                . 'give it one in the table of @facets in tools/rules.d/folders.pl',
            'platform/virtual/v.cpp:1: includes power/p.h: platform knows no power; turn the arrow round with '
                . "a listener or an interface of the platform's",
            'reconciler/r.cpp:2: includes process/p.h: reconciler may include only reconciler state power restore log '
                . 'settings platform',
            'reconciler/r.cpp:3: includes pc/story.h: reconciler belongs to the service, which knows no pc',
            'state/s.cpp:1: includes platform/virtual/machine.h: the service knows no platform/virtual; use '
                . 'the headers of platform/',
            'state/s.cpp:2: asks what it is built for; put the difference into platform/',
        ],
    },
    {
        name => 'locks',
        says => "the service takes no locks and threads of the standard library's",
        check => \&locks,
        planted => {
            'power/p.cpp' => qq{#include <mutex>\n// std::mutex\nstd::recursive_mutex g_lock;\n},
            'pc/p.cpp' => qq{std::thread host;\n},
        },
        found => [
            'power/p.cpp:1: uses <mutex>, whose waits the virtual PC cannot see; use ScopedLock '
                . '(platform/lock.h) and the functions of platform/kernel.h',
            'power/p.cpp:3: uses std::recursive_mutex, whose waits the virtual PC cannot see; use ScopedLock '
                . '(platform/lock.h) and the functions of platform/kernel.h',
        ],
    },
)
