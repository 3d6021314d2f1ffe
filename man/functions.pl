#!/usr/bin/perl
# Writes a section 3 page for everything that the public headers export.
# Usage: functions.pl SOURCE_DIR OUTPUT_DIR VERSION DATE
use strict;
use warnings;
use List::Util qw(max min);
use lib $0 =~ m{(.*)/}s ? $1 : q(.);
use Headers qw(read_header);
use Mdoc qw(sentences text_lines argument);

my ($source, $output, $version, $date) = @ARGV;

my @headers = map { read_header($_, $_ =~ s{^\Q$source\E/include/}{}r) } sort glob("$source/include/zor/*.h"),
  glob("$source/include/zor/platform/*.h");
my %items = map { $_->{name} => $_ } map { @{$_->{items}} } @headers;
$Mdoc::kinds{$_} = $items{$_}{kind} eq 'Va' ? 'Fn' : $items{$_}{kind} for keys %items;

# Comments that lean on the declaration before: "The same with ...", "Its name", "Reads it; null when there is none."
sub leans {
  my ($item) = @_;
  return $item->{doc} =~ /^(?:(?:The|Does the|Asks? for the) same\b|Its?\b|\w+ it\b)/;
}

sub predecessor {
  my ($header, $item) = @_;
  my $found;
  for (@{$header->{items}}) {
    last if $_->{group} == $item->{group};
    $found = $_ if $_->{kind} eq 'Fn';
  }
  return $found;
}

# One line for NAME: what the comment says before its first stop.
sub summary {
  my ($header, $item) = @_;
  my ($text) = sentences($item->{doc} =~ s/\s+/ /gr);
  my $quoted = $text =~ s/("[^"]*")/$1 =~ tr, .;:,\x01-\x04,r/ger;
  $quoted =~ s/(\([^)]*\))/$1 =~ tr, .;:,\x01-\x04,r/ge;
  ($quoted) = $quoted =~ /^(.*?)(?:[;:.](?: |$)|$)/;
  $quoted =~ s/ \([^)]*\)//g if length $quoted > 80;
  1 while length $quoted > 80 && $quoted =~ s/,[^,]*$//;
  $text = $quoted =~ tr/\x01-\x04/ .;:/r;
  if ($text =~ s/^(?:The|Does the|Asks? for the) same\b//) {
    my $before = predecessor($header, $item);
    $text = "as $before->{name}$text" if $before;
  }
  $text = lcfirst $text if $text =~ /^[A-Z](?:[a-z]| )/;
  return join ' ', map { argument($_) =~ s/^"|"$//gr } split / /, $text;
}

# A comment's paragraphs, lists and all, as mdoc.
sub body {
  my ($text, @context) = @_;
  my @lines;
  for my $paragraph (split /\n\s*\n/, $text) {
    push @lines, '.Pp' if @lines;
    my @blocks = split /\n(?=(?:\d+\.|-) )/, $paragraph;
    my $open;
    for my $block (@blocks) {
      my $kind = $block =~ s/^\d+\. +// ? 'enum' : $block =~ s/^- +// ? 'bullet' : '';
      if ($kind && !$open) {
        pop @lines if @lines && $lines[-1] eq '.Pp';
        push @lines, ".Bl -$kind";
        $open = $kind;
      }
      push @lines, '.It' if $kind;
      push @lines, text_lines($block =~ s/\s+/ /gr, @context);
    }
    push @lines, '.El' if $open;
  }
  return @lines;
}

# Whether a sentence says what a function returns and nothing else.
sub is_result {
  my ($item, $sentence) = @_;
  return 0 if $item->{kind} ne 'Fn' || $item->{type} eq 'void';
  return $sentence =~ /^(?:Returns\b|Null(?:;| (?:for|when|without)\b)|-?\d+(?:;| (?:for|when|also)\b))/
    || $sentence =~ /^(?:ZOR_\w*E_|ZOR_\w+FAIL|CL_E_|ERANGE|EINVAL)/;
}

# The statuses that a text names, with what their own comments say.
sub statuses {
  my ($context, @texts) = @_;
  my %seen;
  my @found;
  for my $name (join(q( ), @texts) =~ /\b((?:ZOR_\w*|CL_)(?:E_\w+|FAIL\w+|OK))\b/g) {
    my $item = $items{$name};
    push @found, $item if $item && $item->{kind} eq q(Dv) && !$seen{$name}++;
  }
  return unless @found;
  my @lines = ('.Bl -tag -width Ds');
  for (@found) {
    push @lines, ".It Dv $_->{name} " . argument('(' . $_->{value} =~ s/^UINT32_C\((.*)\)$/$1/r . ')');
    push @lines, $_->{doc} ? text_lines(ucfirst(($_->{doc} =~ s/\s+/ /gr) =~ s/([^.])$/$1./r), @$context) : ();
  }
  return (@lines, '.El');
}

sub synopsis {
  my ($item) = @_;
  return (".Vt $item->{text}" =~ s/\s*;$//r . ' ;') if $item->{kind} eq 'Va';
  my @parameters = @{$item->{parameters}} ? @{$item->{parameters}} : 'void';
  return ('.Ft ' . $item->{type}, ".Fo $item->{name}", (map { '.Fa ' . argument($_) } @parameters), '.Fc');
}

# The types that prototypes name, as the headers define them, and the callbacks that these name.
sub types {
  my ($group, @context) = @_;
  my (@lines, %seen);
  my @words = map { $_->{text} =~ /(\w+)/g } @$group;
  while (defined(my $word = shift @words)) {
    my $type = $items{$word};
    next unless $type && $type->{kind} eq 'Vt' && !$seen{$word}++;
    push @lines, @lines ? '.Pp' : '.Ss Types' if $type->{doc} || !@lines;
    push @lines, body($type->{doc}, @context) if $type->{doc};
    push @lines, '.Bd -literal -offset indent', (map { Mdoc::escape($_) } split /\n/, $type->{text}), '.Ed';
    push @words, grep { $items{$_} && ($items{$_}{text} // '') =~ /^typedef[^{]*\(\*/ } $type->{text} =~ /(\w+)/g;
  }
  return @lines;
}

sub see_also {
  my ($header, $item) = @_;
  my @family = grep { $_->{kind} =~ /^(?:Fn|Va)$/ && "@{$_->{section}}" eq "@{$item->{section}}" } @{$header->{items}};
  my ($at) = grep { $family[$_] == $item } 0 .. $#family;
  my $first = max(0, $at - 7);
  my @near = grep { $_->{group} != $item->{group} } @family[$first .. min($first + 14, $#family)];
  my @pages = ((map { "$_ 3" } sort { lc $a cmp lc $b } map { $_->{name} } @near), 'msgapi 7');
  return map { ".Xr $pages[$_]" . ($_ < $#pages ? ' ,' : '') } 0 .. $#pages;
}

sub page {
  my ($header, $item) = @_;
  my $name = $item->{name};
  my @group = grep { $_->{kind} =~ /^(?:Fn|Va)$/ } @{$item->{group}};
  my %parameters = map { /(\w+)(?:\[\w*\])?$/ ? ($1 => 1) : () } map { @{$_->{parameters} // []} } @group;
  my @context = ({map { $_->{name} => 1 } @group}, \%parameters);
  my $platform = $header->{name} =~ m{/platform/};
  my @opening = body($header->{opening} =~ s{^Conventions(?: of this header)?:\n}{}mr, @context);

  # What is returned has a section of its own when sentences of its own say it.
  my (@said, @returned);
  for my $paragraph (split /\n\s*\n/, $item->{doc}) {
    if ($paragraph =~ /^- /) {
      push @said, $paragraph;
      next;
    }
    my @kept;
    push @{is_result($item, $_) ? \@returned : \@kept}, $_ for sentences($paragraph =~ s/\s+/ /gr);
    push @said, join ' ', @kept if @kept;
  }
  (@said, @returned) = ($item->{doc}) unless @said;

  my @lines = (
    '.\" Made from <' . $header->{name} . '>: mend its comments instead.',
    ".Dd $date", '.Dt ' . uc($name) . ' 3', ".Os libmsgapi $version", '.Sh NAME',
    (map { ".Nm $group[$_]{name}" . ($_ < $#group ? ' ,' : '') } 0 .. $#group),
    '.Nd ' . summary($header, $item),
    '.Sh LIBRARY',
    $platform ? 'Platform library (libzorplatform, \-lzorplatform)' : 'Messaging library (libmsgapi, \-lmsgapi)',
    '.Sh SYNOPSIS', ".In $header->{name}", (map { synopsis($_) } @group),
    '.Sh DESCRIPTION', body(join("\n\n", @said), @context));
  my @leaned;
  for (my $from = $item; leans($from);) {
    $from = predecessor($header, $from) or last;
    push @leaned, $from;
    push @lines, '.Pp', 'What is said of', ".Xr $from->{name} 3 :";
    push @lines, '.Bd -filled -offset indent', body($from->{doc}, @context), '.Ed';
  }
  for (@{$item->{section}}) {
    next unless tr/.// > 1 || length > 60;
    push @lines, '.Pp', body($_, @context);
  }
  push @lines, types(\@group, @context);
  push @lines, ".Ss Conventions of <$header->{name}>", @opening if sentences($header->{opening}) > 1;
  my @statuses = statuses(\@context, $item->{doc}, @{$item->{section}}, map { $_->{doc} } @leaned);
  if (@returned || @statuses) {
    push @lines, '.Sh RETURN VALUES', (map { text_lines($_, @context) } @returned), @statuses;
  }
  return join "\n", @lines, '.Sh SEE ALSO', see_also($header, $item), '';
}

mkdir $output;
unlink glob "$output/*.3";
for my $header (@headers) {
  for my $item (@{$header->{items}}) {
    next unless $item->{kind} =~ /^(?:Fn|Va)$/;
    $item->{doc} or die "$header->{name}: $item->{name} has no comment\n";
    open my $out, '>', "$output/$item->{name}.3" or die "$output/$item->{name}.3: $!\n";
    print $out page($header, $item);
    close $out or die "$output/$item->{name}.3: $!\n";
  }
}
