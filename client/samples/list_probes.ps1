# Lists the probes, and what is behind each in its present mode:  powershell -File list_probes.ps1
$wirefox = New-Object -ComObject TzWirefoxService.TzWirefox

# Outputs are filled in by reference; a method's outcome (0: success) is its last one.
[ref] $probes = $null
$outcome = $wirefox.EnumerateWirefoxs($probes)
if ($outcome -ne 0) { Write-Error "error $outcome"; exit (10 + $outcome) }

foreach ($probe in $probes.Value) {
    $probe
    [ref] $targets = $null
    $outcome = $wirefox.EnumerateDevices($probe, $targets)
    if ($outcome -ne 0) { "  error $outcome"; continue }
    foreach ($target in $targets.Value) { "  $target" }
}
