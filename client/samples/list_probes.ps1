# Lists the probes, and what is behind each in its present mode:  powershell -File list_probes.ps1
$wirefox = New-Object -ComObject TzWirefoxService.TzWirefox

# Outputs are passed by reference, in variables that hold their type already; a method's outcome
# (0: success) is its result.
[string[]] $probes = @()
$outcome = $wirefox.EnumerateWirefoxs([ref] $probes)
if ($outcome -ne 0) { Write-Error "error $outcome"; exit (10 + $outcome) }

foreach ($probe in $probes) {
    $probe
    [string[]] $targets = @()
    $outcome = $wirefox.EnumerateDevices($probe, [ref] $targets)
    if ($outcome -ne 0) { "  error $outcome"; continue }
    foreach ($target in $targets) { "  $target" }
}
