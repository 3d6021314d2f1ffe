#!/usr/bin/perl
# Writes the pages of sections 1, 5, 7 and 8: the texts beside this script with figures from the code in them.
# "@NAME@" is a limit's value and "@NAME:unit@" the value as people read it; "@INCLUDE file@" is another file's text,
# "@EXAMPLE file@" a program of the folder examples.
# Usage: pages.pl SOURCE_DIR OUTPUT_DIR VERSION DATE
use strict;
use warnings;
use File::Glob qw(:bsd_glob);  # a directory may have blanks in its name
use lib $0 =~ m{(.*)/}s ? $1 : q(.);
use Headers qw(read_header);
use Limits qw(read_limits figure);
use Mdoc qw(text_lines constant_list sentences literal value);

my ($source, $output, $version, $date) = @ARGV;
my ($sections, $values) = read_limits($source);

sub content {
  my ($path) = @_;
  open my $in, '<', $path or die "$path: $!\n";
  local $/;
  return <$in>;
}

sub limits {
  my @lines;
  for my $section (@$sections) {
    push @lines, ".Ss $section->{title}", '.Bl -tag -width 16n';
    for (@{$section->{entries}}) {
      push @lines, '.It ' . figure($_->{value}, $_->{unit});
      push @lines, text_lines("$_->{what}: $_->{beyond}."), ".Pq Dv $_->{name}";
    }
    push @lines, '.El';
  }
  return join "\n", @lines;
}

sub statuses {
  my @lines;
  for (@{read_header("$source/include/zor/status.h", 'zor/status.h')->{items}}) {
    next unless $_->{doc};
    push @lines, '.It ' . $_->{value} =~ s/^UINT32_C\((.*)\)$/$1/r, ".Dv $_->{name} .";
    push @lines, text_lines($_->{doc} =~ s/\s+/ /gr);
  }
  return join "\n", @lines;
}

# The constants of each wire format, and the fixed paths.
sub wire {
  my @lines;
  for my $path (sort(glob "$source/include/zor/*_wire.h"), "$source/include/zor/paths.h") {
    my $header = read_header($path, $path =~ s{.*/include/}{}r);
    my ($subject) = sentences($header->{opening} =~ s/\s+/ /gr);
    push @lines, ".Ss <$header->{name}>", text_lines($subject);
    my $group;
    for (grep { $_->{kind} eq 'Dv' } @{$header->{items}}) {
      next if defined $group && $_->{group} == $group;
      $group = $_->{group};
      push @lines, '.Pp', constant_list([grep { $_->{kind} eq 'Dv' } @$group]);
    }
  }
  return join "\n", @lines;
}

# An example's source file.
sub example {
  my ($name) = @_;
  return join("\n", literal(content("$source/man/examples/$name"))) . "\n";
}

my %made = (VERSION => sub { $version }, DATE => sub { $date }, LIMITS => \&limits, STATUSES => \&statuses, WIRE => \&wire);

sub replacement {
  my ($page, $word) = @_;
  return $made{$word}->() if $made{$word};
  my ($name, $unit) = $word =~ /^((?:\w+::)?\w+)(?::(\w+))?$/;
  defined $values->{$name} or die "$page: there is no limit $name\n";
  return figure($values->{$name}, $unit // '');
}

mkdir "$output/man$_" for 1, 5, 7, 8;
unlink glob "$output/man[1578]/*";
for my $path (glob "$source/man/*.in") {
  my ($page) = $path =~ m{([^/]+)\.in$};
  my ($name, $section) = $page =~ /^(.*)\.(\d)$/;
  my $text = content($path);
  $text =~ s/^\@INCLUDE (\S+)\@\n/content("$source\/man\/$1")/gme;
  $text =~ s/^\@EXAMPLE (\S+)\@\n/example($1)/gme;
  $text =~ s/\@NAME\@/$name/g;
  $text =~ s/\@([A-Za-z]\w*(?:::\w+)?(?::\w+)?)\@/replacement($page, $1)/ge;
  open my $out, '>', "$output/man$section/$page" or die "$output/man$section/$page: $!\n";
  print $out $text;
  close $out or die "$page: $!\n";
}
