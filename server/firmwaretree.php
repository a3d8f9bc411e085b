<?php
// What the reference update server knows of its firmware tree and its accounts.
// The tree holds one folder per server folder name; the two unstable folders may hold
// sub-folders named by a user identifier. Nothing from a request is ever used as a
// path unless every piece of it is a plain name of the tree.

const FOLDERS = ['TesselNINE_Latest', 'TesselNINE_Unstable', 'TesselNINE_Bootloader',
                 'BRIO_MEL_Latest', 'BRIO_MEL_Unstable'];
const UNSTABLE = ['TesselNINE_Unstable', 'BRIO_MEL_Unstable'];

function firmware_root(): string
{
    return getenv('MORVANTA_FIRMWARE_ROOT') ?: __DIR__ . '/sample';
}

function plain_name(string $name): bool
{
    return preg_match('/^[A-Za-z0-9_+-][A-Za-z0-9_.+-]*$/', $name) === 1 && strpos($name, '..') === false;
}

// The account file maps user names to the SHA-1 digest of their password.
function account_ok(string $user, string $digest): bool
{
    $file = getenv('MORVANTA_ACCOUNTS') ?: __DIR__ . '/accounts.ini';
    $accounts = is_readable($file) ? parse_ini_file($file, false, INI_SCANNER_RAW) : false;
    return is_array($accounts) && isset($accounts[$user]) && $digest !== ''
        && hash_equals(strtolower(trim($accounts[$user])), strtolower($digest));
}

// "Folder" or "Folder/user" to the folder on disk, or null.
function folder_path(string $folder): ?string
{
    $parts = explode('/', $folder);
    if (!in_array($parts[0], FOLDERS, true) || count($parts) > 2)
        return null;
    if (count($parts) === 2 && (!in_array($parts[0], UNSTABLE, true) || !plain_name($parts[1])))
        return null;
    $path = firmware_root() . '/' . $folder;
    return is_dir($path) ? $path : null;
}
