# Reads a file of measurements as a collector does, and prints how many families and measurements it has.
import sys

from prometheus_client.openmetrics.parser import text_string_to_metric_families

with open(sys.argv[1], encoding="utf-8") as file:
    families = list(text_string_to_metric_families(file.read()))
print(len(families), "families,", sum(len(family.samples) for family in families), "measurements")
