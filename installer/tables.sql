-- What wixl has no elements for, a statement a line. VERSION stands for the version of the
-- service's file, SHORT for its first three fields.

-- A file with a version replaces a copy that was installed by hand only if the table has the version, too.
UPDATE `File` SET `Version` = 'VERSION', `Language` = '1033' WHERE `File` = 'HOLVService.exe'
DELETE FROM `MsiFileHash` WHERE `File_` = 'HOLVService.exe'
-- Attributes: 256 is a component of 64-bit Windows, 16 keeps it when the product is removed, as the switch does.
UPDATE `Component` SET `Attributes` = 272 WHERE `Component` = 'Kept'
UPDATE `Component` SET `Attributes` = 272 WHERE `Component` = 'LogFolder'
UPDATE `Component` SET `Condition` = 'RECOVERY="1"' WHERE `Component` = 'Recovery'
UPDATE `Property` SET `Value` = 'OLDERFOUND;NEWERFOUND;RECOVERY;PURGE' WHERE `Property` = 'SecureCustomProperties'
-- 256 and 512: both ends of the range count. Windows compares three fields of a version, so a build that
-- differs in the fourth replaces this one.
DELETE FROM `Upgrade` WHERE `ActionProperty` = 'OLDERFOUND'
INSERT INTO `Upgrade` (`UpgradeCode`, `VersionMin`, `VersionMax`, `Attributes`, `ActionProperty`) VALUES ('{6C0F8B52-93E1-4D7A-8E24-B51D07A96F3C}', '0.0.0', 'SHORT', 768, 'OLDERFOUND')

-- The registration that the switch -Service writes. Root 2 is HKEY_LOCAL_MACHINE; the name * stands for a
-- key that is made and removed, + for one that is made.
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('AppId', 2, 'Software\Classes\AppID\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}', 'HOLVService', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('AppIdService', 2, 'Software\Classes\AppID\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}', 'LocalService', 'HOLVService', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('AppIdExe', 2, 'Software\Classes\AppID\HOLVService.EXE', 'AppID', '{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ProgId1', 2, 'Software\Classes\HOLVAgentLib.HOLVAgentLib.1', 'HOLVAgentApi Class', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ProgId1Class', 2, 'Software\Classes\HOLVAgentLib.HOLVAgentLib.1\CLSID', '{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ProgId', 2, 'Software\Classes\HOLVAgentLib.HOLVAgentLib', 'HOLVAgentApi Class', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ProgIdClass', 2, 'Software\Classes\HOLVAgentLib.HOLVAgentLib\CLSID', '{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ProgIdCurVer', 2, 'Software\Classes\HOLVAgentLib.HOLVAgentLib\CurVer', 'HOLVAgentLib.HOLVAgentLib.1', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('Class', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}', 'HOLVAgentApi Class', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('ClassAppId', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}', 'AppID', '{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47}', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ClassProgId', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\ProgID', 'HOLVAgentLib.HOLVAgentLib.1', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ClassCurProgId', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\VersionIndependentProgID', 'HOLVAgentLib.HOLVAgentLib', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Component_`) VALUES ('ClassProgrammable', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\Programmable', '*', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ClassServer', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\LocalServer32', '[#HOLVService.exe]', 'Service')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Value`, `Component_`) VALUES ('ClassLibrary', 2, 'Software\Classes\CLSID\{3E9F1B20-6C4A-4D8E-B7F2-95A0C1D3E864}\TypeLib', '{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}', 'Service')
-- Every start of the program writes these, and no removal takes them away.
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Component_`) VALUES ('UserKey', 2, 'Software\Orbeq\Holv\User', '+', 'Kept')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('EventMessages', 2, 'SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV', 'EventMessageFile', '#%[#HOLVService.exe]', 'Kept')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('EventCategories', 2, 'SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV', 'CategoryMessageFile', '#%[#HOLVService.exe]', 'Kept')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('EventTypes', 2, 'SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV', 'TypesSupported', '#7', 'Kept')
INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) VALUES ('EventCategoryCount', 2, 'SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV', 'CategoryCount', '#1', 'Kept')
UPDATE `Component` SET `KeyPath` = 'EventMessages', `Attributes` = 276 WHERE `Component` = 'Kept'
-- The type library within the program. 257 is version 1.1.
CREATE TABLE `TypeLib` (`LibID` CHAR(38) NOT NULL, `Language` SHORT NOT NULL, `Component_` CHAR(72) NOT NULL, `Version` LONG, `Description` CHAR(128) LOCALIZABLE, `Directory_` CHAR(72), `Feature_` CHAR(38) NOT NULL, `Cost` LONG PRIMARY KEY `LibID`, `Language`, `Component_`)
INSERT INTO `TypeLib` (`LibID`, `Language`, `Component_`, `Version`, `Description`, `Directory_`, `Feature_`) VALUES ('{C4D72A19-3B8E-4F05-9A61-E2B7D048F1C3}', 1033, 'Service', 257, 'Orbeq(R) Holv Technology 1.1 Type Library', 'INSTALLDIR', 'Holv')

-- RECOVERY=1: started again after a minute, after the first failure and the second. 1 is an installation,
-- and as an action a restart.
CREATE TABLE `MsiServiceConfigFailureActions` (`MsiServiceConfigFailureActions` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL LOCALIZABLE, `Event` SHORT NOT NULL, `ResetPeriod` LONG, `RebootMessage` CHAR(255) LOCALIZABLE, `Command` CHAR(255) LOCALIZABLE, `Actions` CHAR(0), `DelayActions` CHAR(0), `Component_` CHAR(72) NOT NULL PRIMARY KEY `MsiServiceConfigFailureActions`)
INSERT INTO `MsiServiceConfigFailureActions` (`MsiServiceConfigFailureActions`, `Name`, `Event`, `ResetPeriod`, `Actions`, `DelayActions`, `Component_`) VALUES ('Recovery', 'HOLVService', 1, 86400, '1[~]1[~]0', '60000[~]60000[~]0', 'Recovery')

-- The log's folder and that above it, before the first start: the system and administrators write, users
-- read, and what a user has put in their place no longer belongs to that user. Above, who makes a folder may
-- use it, as another program's service.
CREATE TABLE `MsiLockPermissionsEx` (`MsiLockPermissionsEx` CHAR(72) NOT NULL, `LockObject` CHAR(72) NOT NULL, `Table` CHAR(32) NOT NULL, `SDDLText` CHAR(0) NOT NULL, `Condition` CHAR(255) PRIMARY KEY `MsiLockPermissionsEx`)
INSERT INTO `MsiLockPermissionsEx` (`MsiLockPermissionsEx`, `LockObject`, `Table`, `SDDLText`) VALUES ('LogFolder', 'DATADIR', 'CreateFolder', 'O:BAG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)')
INSERT INTO `MsiLockPermissionsEx` (`MsiLockPermissionsEx`, `LockObject`, `Table`, `SDDLText`) VALUES ('VendorFolder', 'DATAPARENT', 'CreateFolder', 'O:BAG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICIIO;FA;;;CO)(A;OICI;0x1200a9;;;BU)')

-- Custom actions. 19 ends with a message. 18 starts an installed file and 34 a command line; 64 goes on
-- when it fails, 1024 and 2048 run it within the installation, as the system. While the settings' key is
-- needed by the next start, because not all could be restored, it stays.
INSERT INTO `CustomAction` (`Action`, `Type`, `Target`) VALUES ('RefuseOlder', 19, 'A newer version is installed.')
INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('Restore', 3154, 'holvctl.exe', 'restore')
INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('PurgeSettings', 3170, 'INSTALLDIR', '"[System64Folder]cmd.exe" /d /c ""[#holvctl.exe]" restore && "[System64Folder]reg.exe" delete HKLM\Software\Orbeq\Holv /f /reg:64"')
INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('PurgeEventSource', 3170, 'INSTALLDIR', '"[System64Folder]reg.exe" delete "HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Orbeq( R ) HOLV" /f /reg:64')
INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('PurgeLog', 3170, 'INSTALLDIR', '"[System64Folder]cmd.exe" /d /c rmdir /s /q "[CommonAppDataFolder]Orbeq\Holv"')
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('RefuseOlder', 'NEWERFOUND', 26)
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('Restore', 'REMOVE="ALL"', 2010)
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('UnregisterTypeLibraries', 2300)
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('RemoveRegistryValues', 2600)
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('PurgeSettings', 'REMOVE="ALL" AND PURGE="1" AND NOT UPGRADINGPRODUCTCODE', 2700)
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('PurgeEventSource', 'REMOVE="ALL" AND PURGE="1" AND NOT UPGRADINGPRODUCTCODE', 2710)
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('PurgeLog', 'REMOVE="ALL" AND PURGE="1" AND NOT UPGRADINGPRODUCTCODE', 2720)
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('WriteRegistryValues', 5000)
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('RegisterTypeLibraries', 5500)
INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('MsiConfigureServices', 'RECOVERY="1"', 5850)
