#!/usr/bin/perl
# Writes a section 3 page for everything that the public headers export.
# Usage: functions.pl SOURCE_DIR OUTPUT_DIR VERSION DATE
use strict;
use warnings;
use File::Glob qw(:bsd_glob);  # a directory may have blanks in its name
use List::Util qw(max min);
use lib $0 =~ m{(.*)/}s ? $1 : q(.);
use Headers qw(read_header);
use Mdoc qw(sentences text_lines argument literal value sentence constant_list);

my ($source, $output, $version, $date) = @ARGV;

my @headers = map { read_header($_, $_ =~ s{^\Q$source\E/include/}{}r) } sort glob("$source/include/zor/*.h"),
  glob("$source/include/zor/platform/*.h");
my %items = map { $_->{name} => $_ } map { @{$_->{items}} } @headers;
$Mdoc::kinds{$_} = $items{$_}{kind} eq 'Va' ? 'Fn' : $items{$_}{kind} for keys %items;

# Constants that say whose they are: "Used with NAME, NAME and NAME." ends the comment of their group, where a name is a
# function, a variable or a type. Groups by that name, each a list of items.
my %used;
for my $item (map { grep { $_->{kind} eq 'Dv' } @{$_->{items}} } @headers) {
  next unless ($item->{said} // '') =~ /\bUsed with\s+([\w\s,]+)\.$/ && $item == $item->{group}[0];
  for my $name (grep { length } split /,\s*|\s+and\s+|\s+/, $1) {
    $items{$name} or die "$item->{header}: $item->{name}: used with $name, which is not declared\n";
    push @{$used{$name}}, $item->{group};
  }
}

# Examples by the names that they use, the one called like the header first.
my %examples;
for my $path (sort glob("$source/man/examples/*.c")) {
  open my $in, '<', $path or die "$path: $!\n";
  local $/;
  my $text = <$in>;
  my ($name) = $path =~ m{([^/]+)\.c$};
  my %seen = map { $_ => 1 } $text =~ /\b(\w+)\b/g;
  push @{$examples{$_}}, {name => $name, text => $text} for grep { $items{$_} } keys %seen;
}

sub example_of {
  my ($header, $item) = @_;
  my ($own) = $header->{name} =~ m{(\w+)\.h$};
  my @found = @{$examples{$item->{name}} // []};
  return (grep { $_->{name} eq $own } @found)[0] // $found[0];
}

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
  my (%seen, @found);
  for my $name (join(q( ), @texts) =~ /\b((?:ZOR_\w*|CL_)(?:E_\w*|FAIL\w+|OK))\b/g) {
    my @names = $name =~ /_E_$/ ? sort grep { /^$name/ } keys %items : $name;
    push @found, grep { $_ && $_->{kind} eq q(Dv) && !$seen{$_->{name}}++ } map { $items{$_} } @names;
  }
  return unless @found;
  my $success = $items{$found[0]{name} =~ s/_E_\w+$/_OK/r};
  unshift @found, $success if $success && !$seen{$success->{name}};
  my @lines = ('.Bl -tag -width Ds');
  for (@found) {
    push @lines, ".It Dv $_->{name} " . argument('(' . value($_->{value}) . ')');
    my $doc = $_->{doc} // ($_->{name} =~ /OK$/ ? 'success' : '');
    push @lines, $doc ? text_lines(sentence($doc), @$context) : ();
  }
  return (@lines, '.El');
}

# The constants that functions or their types are used with, less those that the page has named as statuses.
sub constants {
  my ($group, $named, @context) = @_;
  my (@lines, %seen);
  for my $constants (map { @{$used{$_->{name}} // []} } @$group, named_types($group)) {
    my @left = grep { !$named->{$_->{name}} } @$constants;
    next if !@left || $seen{$constants}++;
    push @lines, @lines ? '.Pp' : '.Ss Constants';
    push @lines, constant_list(\@left, @context);
  }
  return @lines;
}

sub synopsis {
  my ($item) = @_;
  return (".Vt $item->{text}" =~ s/\s*;$//r . ' ;') if $item->{kind} eq 'Va';
  my @parameters = @{$item->{parameters}} ? @{$item->{parameters}} : 'void';
  return ('.Ft ' . $item->{type}, ".Fo $item->{name}", (map { '.Fa ' . argument($_) } @parameters), '.Fc');
}

sub is_callback {
  my ($item) = @_;
  return ($item->{text} // '') =~ /^typedef[^{]*\(\*/;
}

# The types that prototypes name, the callbacks that these name, and the records that callbacks get.
sub named_types {
  my ($group) = @_;
  my (@types, %seen);
  my @words = map { $_->{text} =~ /(\w+)/g } @$group;
  while (defined(my $word = shift @words)) {
    my $type = $items{$word};
    next unless $type && $type->{kind} eq 'Vt' && !$seen{$word}++;
    push @types, $type;
    my $callback = is_callback($type);
    push @words, grep { $items{$_} && ($callback || is_callback($items{$_})) } $type->{text} =~ /(\w+)/g;
  }
  return @types;
}

sub types {
  my ($group, @context) = @_;
  my @lines;
  for my $type (named_types($group)) {
    push @lines, @lines ? '.Pp' : '.Ss Types' if $type->{doc} || !@lines;
    push @lines, body($type->{doc}, @context) if $type->{doc};
    push @lines, literal($type->{text});
  }
  return @lines;
}

# A page whose names the examples use shows one; the others of its header lead to the first that does.
sub example {
  my ($header, @group) = @_;
  my ($own) = grep { defined } map { example_of($header, $_) } @group;
  return ('.Sh EXAMPLES', literal($own->{text})) if $own;
  my ($other) = grep { $_->{kind} =~ /^(?:Fn|Va)$/ && example_of($header, $_) } @{$header->{items}};
  return $other ? ('.Sh EXAMPLES', 'See', ".Xr $other->{name} 3 .") : ();
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
    '.\" Made from <' . $header->{name} . '>: edit its comments instead.',
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
  my @statuses = statuses(\@context, $item->{doc}, @{$item->{section}}, map { $_->{doc} } @leaned);
  push @lines, types(\@group, @context);
  push @lines, constants(\@group, {map { /^\.It Dv (\w+)/ ? ($1 => 1) : () } @statuses}, @context);
  push @lines, ".Ss Conventions of <$header->{name}>", @opening if sentences($header->{opening}) > 1;
  if (grep({ ($_->{type} // 'void') ne 'void' && $_->{kind} eq 'Fn' } @group) && (@returned || @statuses)) {
    push @lines, '.Sh RETURN VALUES', (map { text_lines($_, @context) } @returned), @statuses;
  }
  push @lines, example($header, @group);
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
